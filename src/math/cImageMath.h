#pragma once
#include <cstdint>
#include <vector>

#include "core/cCountedArray.h"
#include "core/cCountedPtr.h"
#include "core/cImageDimensions.h"
#include "core/cOvdLoggingObject.h"
#include "image/cOvdImage.h"

namespace Ovidane {

using cShortImagePtr = cCountedPtr<cOvdImage<uint16_t>>;
using cByteImagePtr = cCountedPtr<cOvdImage<uint8_t>>;
using cCountedBox = cCountedPtr<cImageBox>;

// Result of CalculateStatisticsByMask.
struct cImageMathStatistics {
    float mean = 0;
    float minimum = 0;
    float maximum = 0;
    double sum = 0;
    float standardDeviation = 0;
    double variance = 0;
    float area = 0;
    uint32_t pixelCount = 0;
};

// The one arithmetic interface: every pixel operation on a float image goes through it.
// Fetch an instance from cImageMathManager at the place of use. Images are passed as
// counted pointers; out may alias an input in the element-wise operations, never in the
// projections, the shape generators or RadialAverage. Boxes may give their corners in
// either order. Failures are cException objects of code 2 whose message ends in the
// operation's name. The order of the members is the order of the table of functions.
class cImageMath : public cOvdLoggingObject {
public:
    using cOvdLoggingObject::cOvdLoggingObject;
    ~cImageMath() override = default;

    // ---- Element-wise arithmetic
    virtual void AddImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void AddImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
                             const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) = 0;
    virtual void AddImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) = 0;
    virtual void SubtractImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void AbsoluteValueImage(const cFloatImagePtr& a, const cFloatImagePtr& out) = 0;
    virtual void SubtractImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
                                  const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) = 0;
    virtual void SubtractImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) = 0;
    virtual void SubtractImageSliceByConstant(const cFloatImagePtr& image, const float& c, const unsigned& z) = 0;
    virtual void SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& c,
                                                     const float& threshold, const float& value, int mode) = 0;
    virtual void SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& threshold,
                                                     const float& value, int mode) = 0;
    // v = p - c, v below the threshold replaced by value, then v · scale: the subtraction,
    // the threshold of mode 1 and the scaling in one pass, with the same bits as the three.
    virtual void SubtractThresholdAndScaleImage(const cFloatImagePtr& image, const float& c,
                                                const float& threshold, const float& value,
                                                const float& scale) = 0;
    virtual void ThresholdAndScaleImage(const cFloatImagePtr& image, const float& low, const float& high,
                                        const float& outLow, const float& outHigh) = 0;
    virtual void MultiplyImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void MultiplyImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
                                  const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) = 0;
    virtual void MultiplyImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) = 0;
    virtual void MultiplyImageSliceByConstant(const cFloatImagePtr& image, const float& c, const unsigned& z) = 0;
    // Interleaved complex images (re, im pairs along x).
    virtual void MultiplyComplexImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
                                      const float& scale, int conjugate) = 0;
    // Split complex images.
    virtual void MultiplyComplexImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm,
                                      const cFloatImagePtr& bRe, const cFloatImagePtr& bIm,
                                      const cFloatImagePtr& outRe, const cFloatImagePtr& outIm,
                                      const float& scale, int conjugate) = 0;
    virtual void DivideImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void PowerOfImageDivisionWithThreshold(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                                   const cFloatImagePtr& out, const float& exponent,
                                                   const float& threshold, const float& value) = 0;
    virtual void SquareRootImage(const cFloatImagePtr& a, const cFloatImagePtr& out) = 0;
    virtual void SquareImage(const cFloatImagePtr& a, const cFloatImagePtr& out) = 0;
    virtual void LogImage(const cFloatImagePtr& a, const cFloatImagePtr& out) = 0;
    virtual void NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, const unsigned& firstSlice,
                                const unsigned& lastSlice, const float& target) = 0;
    virtual void NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, float low, float high) = 0;
    virtual void NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, float gamma) = 0;

    // ---- Geometry: bridges over wrap-around gaps, resampling
    virtual void InterpolateLine(const cFloatImagePtr& image, cImagePosition& start, cImagePosition& end) = 0;
    virtual void InterpolateLineCosine(const cFloatImagePtr& image, cImagePosition& start, cImagePosition& end) = 0;
    virtual void InterpolateRoi(const cFloatImagePtr& image, const cImageBox& box, int mode) = 0;
    virtual void InterpolateBilinear(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                     const cFloatImagePtr& firstWork, const cFloatImagePtr& secondWork) = 0;

    // ---- Multipliers and penalties
    virtual float LagrangeMultiplierCalculateVU(const cFloatImagePtr& image, const cFloatImagePtr& mask) = 0;
    virtual float LagrangeMultiplierCalculateA2(const cFloatImagePtr& image, const cFloatImagePtr& mask, float a,
                                                float b) = 0;
    virtual float LagrangeMultiplierCalculateA3(const cFloatImagePtr& image, const cFloatImagePtr& mask, float a1,
                                                float a2, float a3) = 0;
    virtual void LagrangeMultiplierConstraintApply(const cFloatImagePtr& out, const cFloatImagePtr& in,
                                                   const cFloatImagePtr& mask, float a1, float a2, float a3,
                                                   float fraction) = 0;
    virtual void GoodsRoughnessPenalty(const cFloatImagePtr& estimate, const cFloatImagePtr& reference,
                                       const cFloatImagePtr& work, const float& beta) = 0;

    // ---- Fused steps of the multiplicative extrapolation of ML-EM: one walk over the
    // images where the step as a chain of element-wise operations would read and write them
    // several times. The values are those of the chain.
    // plain = object · factor goes to `plain`; gradient = plain · ln(factor), 0 where the
    // factor is not positive (no logarithm: no change); answers Σ gradient · lastGradient in
    // `cross` and Σ lastGradient² in `lastSquare`, summed in double in the fixed order of
    // every reduction. Each output may be one of the inputs.
    virtual void ExtrapolationGradient(const cFloatImagePtr& object, const cFloatImagePtr& factor,
                                       const cFloatImagePtr& lastGradient,
                                       const cFloatImagePtr& plain, const cFloatImagePtr& gradient,
                                       double& cross, double& lastSquare) = 0;
    // out = max(floor, plain · r^alpha) with r = plain / previous held in 1/maxRatio to
    // maxRatio, and r counting as 1 where the previous value is at most `threshold`; alpha 0
    // gives max(floor, plain).
    virtual void ExtrapolateWithFloor(const cFloatImagePtr& plain, const cFloatImagePtr& previous,
                                      const cFloatImagePtr& out, float alpha, float threshold,
                                      float maxRatio, float floor) = 0;

    // ---- Reductions and searches
    virtual float FindMinimumValue(const cFloatImagePtr& image) = 0;
    virtual float FindMaximumValue(const cFloatImagePtr& image) = 0;
    // Both in one pass over the image, equal to the two above.
    virtual void FindMinimumAndMaximumValue(const cFloatImagePtr& image, float& minimum,
                                            float& maximum) = 0;
    virtual float EstimateForegroundThreshold(const cFloatImagePtr& image) = 0;
    virtual unsigned CountPixelInRange(const cFloatImagePtr& image, const float& low, const float& high) = 0;
    // A histogram against ascending limits: counts[k] grows by the pixels below limits[k]
    // and not below limits[k - 1] (any pixel below limits[0] for k = 0); pixels at or above
    // the last limit are not counted. counts must have as many entries as limits.
    virtual void CountPixelsBelowLimits(const cFloatImagePtr& image,
                                        const std::vector<float>& limits,
                                        std::vector<uint64_t>& counts) = 0;
    virtual void FindMaxMinPositionOfMaximumValue(const cFloatImagePtr& image, cImagePosition& upper,
                                                  cImagePosition& lower) = 0;
    virtual float ComputeLogLikelihoodIncreaseByLineSearch(const cFloatImagePtr& data, const cFloatImagePtr& blurred,
                                                           const cFloatImagePtr& direction,
                                                           const cFloatImagePtr& work, const float& step,
                                                           unsigned x0, unsigned xMargin, unsigned y0,
                                                           unsigned yMargin, unsigned z0, unsigned zMargin) = 0;
    virtual void CalculateRadialProfile(const cFloatImagePtr& re, const cFloatImagePtr& im,
                                        cCountedArray<float> profile) = 0;
    virtual double SumImage(const cFloatImagePtr& image) = 0;
    // The sum of the image scaled as NormalizeImage(image, out, low, high) scales it, equal
    // bit for bit to that NormalizeImage followed by SumImage(out); the image stays as it is.
    virtual double SumNormalizedImage(const cFloatImagePtr& image, float low, float high) = 0;
    virtual double SumImageSquared(const cFloatImagePtr& image) = 0;
    virtual float SumOfImageProduct(const cFloatImagePtr& a, const cFloatImagePtr& b) = 0;
    virtual double AbsoluteSumImage(const cFloatImagePtr& image) = 0;
    virtual double SumImageSlice(const cFloatImagePtr& image, const unsigned& z) = 0;
    virtual float AverageImage(const cFloatImagePtr& image) = 0;
    virtual float MaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) = 0;
    virtual float UnMaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) = 0;
    virtual void RadialAverage(const cFloatImagePtr& image, const cFloatImagePtr& work) = 0;

    // ---- Non-negativity
    virtual void NonNegativityCompression(const cFloatImagePtr& a, float originalSum, const cFloatImagePtr& out) = 0;
    virtual void NonNegativityLinearCompression(const cFloatImagePtr& a, float originalSum, float limit,
                                                const cFloatImagePtr& out) = 0;
    virtual void NonNegativityCompressionInverted(const cFloatImagePtr& a, const cFloatImagePtr& out,
                                                  float* pedestal) = 0;

    // ---- Projections and extremes
    virtual void MinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) = 0;
    virtual void MinimumImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void MaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) = 0;
    virtual void MaximumImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void TripleMaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                         const cFloatImagePtr& xz, const cFloatImagePtr& zy) = 0;
    virtual void TripleMinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                         const cFloatImagePtr& xz, const cFloatImagePtr& zy) = 0;
    virtual void TripleMaximumProjectionRoi(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                            const cImageBox& box, const cImageBox& xyBox, const cImageBox& xzBox,
                                            const cImageBox& zyBox) = 0;
    virtual void TripleSumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz,
                                     const cFloatImagePtr& zy) = 0;
    virtual void SumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis, int firstSlice,
                               int lastSlice) = 0;

    // ---- Shape generators
    virtual void GenerateGridMask(const cFloatImagePtr& image, const unsigned& stepXY, const unsigned& stepZ) = 0;
    virtual void GenerateBesselArray(const cFloatImagePtr& image, const double& scale) = 0;
    // The theoretical PSF kernel: the Hankel integral over the pupil, plane by plane.
    virtual void GeneratePsfWithSphericalAberrationUsingBessel(
        const cFloatImagePtr& target, const cFloatImagePtr& plane, const cFloatImagePtr& table,
        const cCountedArray<int32_t>& indexMap, const cCountedArray<float>& fractionMap,
        const cCountedArray<float>& realSum, const cCountedArray<float>& imaginarySum,
        const cCountedArray<float>& intensity, const cCountedArray<float>& phaseCosine,
        const cCountedArray<float>& phaseSine, const cImageDimensions& targetSize, const float& numericalAperture,
        const float& refractiveIndex, const float& lambda, const float& sphericalAberration,
        const float& axialPhaseFactor, const float& dz, const float& dRho, const unsigned& oversampling,
        const int& modality) = 0;
    virtual void Generate3DGaussian(const cFloatImagePtr& image, float dx, float dy, float dz, float fwhmX,
                                    float fwhmY, float fwhmZ) = 0;
    virtual void Generate3DHourglass(const cFloatImagePtr& image, float dx, float dy, float dz, float slope,
                                     float radius) = 0;
    virtual void Generate3DDvorakHourGlass(const cFloatImagePtr& in, const cFloatImagePtr& out, float dx, float dy,
                                           float dz, float numericalAperture, float refractiveIndex, float lambda,
                                           float factor, bool flat) = 0;
    virtual void GenerateCylinder(const cFloatImagePtr& image, float dx, float dy, float dz, float halfHeight,
                                  float radius, float value) = 0;
    virtual void FillCylinder(const cFloatImagePtr& image, float dx, float dy, float dz, float halfHeight,
                              float radius, float value) = 0;
    virtual void GenerateDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz, float slope,
                                    float value) = 0;
    virtual void FillDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz, float slope,
                                float value) = 0;
    virtual void CreateDoubleTruncatedCone(const cFloatImagePtr& image, float dx, float dy, float dz,
                                           float minimumZ, float slope, float value, int mode) = 0;
    virtual void GeneratePowerSpectrumMask(const cFloatImagePtr& re, const cFloatImagePtr& im, int unused,
                                           float fraction) = 0;
    virtual void ReservedHandleOperation(const cFloatImagePtr& image, void* handle) = 0;

    // ---- Filling and copying
    virtual void SetImageToConstant(const cFloatImagePtr& image, float value) = 0;
    virtual void SetRoiToConstant(const cFloatImagePtr& image, const cImageBox& box, float value) = 0;
    virtual void RetrievePsfCenteringBrightestSlice(const cFloatImagePtr& out, const cFloatImagePtr& in) = 0;
    virtual void FFTShift(const cFloatImagePtr& in, const cFloatImagePtr& work, const cFloatImagePtr& out) = 0;
    virtual void CopyImage(const cFloatImagePtr& in, const cFloatImagePtr& out) = 0;
    virtual void CopyImageSlice(const cFloatImagePtr& in, const unsigned& zIn, const cFloatImagePtr& out,
                                const unsigned& zOut) = 0;
    virtual void CopyImageRealToComplex(const cFloatImagePtr& re, const cFloatImagePtr& im,
                                        const cFloatImagePtr& out) = 0;
    virtual void CopyImageComplexToReal(const cFloatImagePtr& in, const cFloatImagePtr& re,
                                        const cFloatImagePtr& im, const float& scale) = 0;
    virtual void CopyRectangularRoi(const cFloatImagePtr& in, const cFloatImagePtr& out, const cImageBox& boxIn,
                                    const cImageBox& boxOut) = 0;
    virtual void CopyReal(const float* source, float* target, const int& count) = 0;

    // ---- Conversions
    virtual void ConvertRealtoShort(const cFloatImagePtr& in, const cShortImagePtr& out) = 0;
    virtual void ConvertRealtoByteRoi(const cFloatImagePtr& in, const cByteImagePtr& out, const cCountedBox& boxIn,
                                      const cCountedBox& boxOut) = 0;
    virtual void ConvertRealtoShortRoi(const cFloatImagePtr& in, const cShortImagePtr& out,
                                       const cCountedBox& boxIn, const cCountedBox& boxOut) = 0;
    virtual void ConvertUnsignedByteToReal(const uint8_t* source, float* target, const int& count) = 0;
    virtual void ConvertUnsignedByteToReal(const cByteImagePtr& in, const cFloatImagePtr& out) = 0;
    virtual void ConvertUnsignedShortToReal(const uint16_t* source, float* target, const int& count) = 0;
    virtual void ConvertUnsignedShortToReal(const cShortImagePtr& in, const cFloatImagePtr& out) = 0;
    virtual void ConvertUnsignedLongToReal(const uint32_t* source, float* target, const int& count) = 0;
    virtual void ConvertInterleavedByteToReal(const uint8_t* source, float* target, const int& first,
                                              const int& count, int channel) = 0;

    // ---- Sizes
    virtual bool IsPowerOfTwoSize(const unsigned& sizeX, const unsigned& sizeY) = 0;
    virtual int NearestPowerOfTwo(int value, int step) = 0;

    // ---- Spectra, masks and logic
    virtual void WienerFilteringImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm,
                                      const cFloatImagePtr& hRe, const cFloatImagePtr& hIm, float k,
                                      const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) = 0;
    virtual int CalculateStatisticsByMask(const cFloatImagePtr& image, const cFloatImagePtr& mask, float dx,
                                          float dy, cCountedArray<float> histogram,
                                          cImageMathStatistics* statistics) = 0;
    virtual void CalculateMaskPerimeter(const cFloatImagePtr& in, const cFloatImagePtr& out) = 0;
    virtual float CalculateMaskPerimeter(const cFloatImagePtr& mask, float dx, float dy) = 0;
    virtual int FloodFillImage(const cFloatImagePtr& image, int unused, int seedX, int seedY, float value) = 0;
    virtual void LogicalANDImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void LogicalORImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void LogicalXORImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) = 0;
    virtual void TransposeImage(const cFloatImagePtr& in, const cFloatImagePtr& out) = 0;
};

using cImageMathPtr = cCountedPtr<cImageMath>;

} // namespace Ovidane
