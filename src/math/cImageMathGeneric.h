#pragma once
#include <initializer_list>

#include "math/cImageMath.h"

namespace Ovidane {

// Plain scalar image math: the reference semantics of every operation, and the back end
// that the manager hands out. Lines are walked with pointers fetched once per line and
// spread over the worker threads (math/ImageWalk.h).
class cImageMathGeneric : public cImageMath {
public:
    cImageMathGeneric() : cImageMath("cImageMathGeneric") {}

    void AddImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void AddImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) override;
    void AddImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) override;
    void SubtractImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void AbsoluteValueImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void SubtractImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) override;
    void SubtractImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) override;
    void SubtractImageSliceByConstant(const cFloatImagePtr& image, const float& c, const unsigned& z) override;
    void SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& c, const float& threshold, const float& value, int mode) override;
    void SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& threshold, const float& value, int mode) override;
    void SubtractThresholdAndScaleImage(const cFloatImagePtr& image, const float& c, const float& threshold, const float& value, const float& scale) override;
    void ThresholdAndScaleImage(const cFloatImagePtr& image, const float& low, const float& high, const float& outLow, const float& outHigh) override;
    void MultiplyImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void MultiplyImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) override;
    void MultiplyImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) override;
    void MultiplyImageSliceByConstant(const cFloatImagePtr& image, const float& c, const unsigned& z) override;
    void MultiplyComplexImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const float& scale, int conjugate) override;
    void MultiplyComplexImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm, const cFloatImagePtr& bRe, const cFloatImagePtr& bIm, const cFloatImagePtr& outRe, const cFloatImagePtr& outIm, const float& scale, int conjugate) override;
    void DivideImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void PowerOfImageDivisionWithThreshold(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const float& exponent, const float& threshold, const float& value) override;
    void SquareRootImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void SquareImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void LogImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, const unsigned& firstSlice, const unsigned& lastSlice, const float& target) override;
    void NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, float low, float high) override;
    void NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, float gamma) override;
    void InterpolateLine(const cFloatImagePtr& image, cImagePosition& start, cImagePosition& end) override;
    void InterpolateLineCosine(const cFloatImagePtr& image, cImagePosition& start, cImagePosition& end) override;
    void InterpolateRoi(const cFloatImagePtr& image, const cImageBox& box, int mode) override;
    void InterpolateBilinear(const cFloatImagePtr& in, const cFloatImagePtr& out, const cFloatImagePtr& firstWork, const cFloatImagePtr& secondWork) override;
    float LagrangeMultiplierCalculateVU(const cFloatImagePtr& image, const cFloatImagePtr& mask) override;
    float LagrangeMultiplierCalculateA2(const cFloatImagePtr& image, const cFloatImagePtr& mask, float a, float b) override;
    float LagrangeMultiplierCalculateA3(const cFloatImagePtr& image, const cFloatImagePtr& mask, float a1, float a2, float a3) override;
    void LagrangeMultiplierConstraintApply(const cFloatImagePtr& out, const cFloatImagePtr& in, const cFloatImagePtr& mask, float a1, float a2, float a3, float fraction) override;
    void GoodsRoughnessPenalty(const cFloatImagePtr& estimate, const cFloatImagePtr& reference, const cFloatImagePtr& work, const float& beta) override;
    void ExtrapolationGradient(const cFloatImagePtr& object, const cFloatImagePtr& factor,
                               const cFloatImagePtr& lastGradient, const cFloatImagePtr& plain,
                               const cFloatImagePtr& gradient, double& cross,
                               double& lastSquare) override;
    void ExtrapolateWithFloor(const cFloatImagePtr& plain, const cFloatImagePtr& previous,
                              const cFloatImagePtr& out, float alpha, float threshold,
                              float maxRatio, float floor) override;
    float FindMinimumValue(const cFloatImagePtr& image) override;
    float FindMaximumValue(const cFloatImagePtr& image) override;
    void FindMinimumAndMaximumValue(const cFloatImagePtr& image, float& minimum,
                                    float& maximum) override;
    float EstimateForegroundThreshold(const cFloatImagePtr& image) override;
    unsigned CountPixelInRange(const cFloatImagePtr& image, const float& low, const float& high) override;
    void CountPixelsBelowLimits(const cFloatImagePtr& image, const std::vector<float>& limits,
                                std::vector<uint64_t>& counts) override;
    void FindMaxMinPositionOfMaximumValue(const cFloatImagePtr& image, cImagePosition& upper, cImagePosition& lower) override;
    float ComputeLogLikelihoodIncreaseByLineSearch(const cFloatImagePtr& data, const cFloatImagePtr& blurred, const cFloatImagePtr& direction, const cFloatImagePtr& work, const float& step, unsigned x0, unsigned xMargin, unsigned y0, unsigned yMargin, unsigned z0, unsigned zMargin) override;
    void CalculateRadialProfile(const cFloatImagePtr& re, const cFloatImagePtr& im, cCountedArray<float> profile) override;
    double SumImage(const cFloatImagePtr& image) override;
    double SumNormalizedImage(const cFloatImagePtr& image, float low, float high) override;
    double SumImageSquared(const cFloatImagePtr& image) override;
    float SumOfImageProduct(const cFloatImagePtr& a, const cFloatImagePtr& b) override;
    double AbsoluteSumImage(const cFloatImagePtr& image) override;
    double SumImageSlice(const cFloatImagePtr& image, const unsigned& z) override;
    float AverageImage(const cFloatImagePtr& image) override;
    float MaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) override;
    float UnMaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) override;
    void RadialAverage(const cFloatImagePtr& image, const cFloatImagePtr& work) override;
    void NonNegativityCompression(const cFloatImagePtr& a, float originalSum, const cFloatImagePtr& out) override;
    void NonNegativityLinearCompression(const cFloatImagePtr& a, float originalSum, float limit, const cFloatImagePtr& out) override;
    void NonNegativityCompressionInverted(const cFloatImagePtr& a, const cFloatImagePtr& out, float* pedestal) override;
    void MinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) override;
    void MinimumImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void MaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) override;
    void MaximumImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void TripleMaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz, const cFloatImagePtr& zy) override;
    void TripleMinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz, const cFloatImagePtr& zy) override;
    void TripleMaximumProjectionRoi(const cFloatImagePtr& in, const cFloatImagePtr& out, const cImageBox& box, const cImageBox& xyBox, const cImageBox& xzBox, const cImageBox& zyBox) override;
    void TripleSumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz, const cFloatImagePtr& zy) override;
    void SumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis, int firstSlice, int lastSlice) override;
    void GenerateGridMask(const cFloatImagePtr& image, const unsigned& stepXY, const unsigned& stepZ) override;
    void GenerateBesselArray(const cFloatImagePtr& image, const double& scale) override;
    void GeneratePsfWithSphericalAberrationUsingBessel( const cFloatImagePtr& target, const cFloatImagePtr& plane, const cFloatImagePtr& table, const cCountedArray<int32_t>& indexMap, const cCountedArray<float>& fractionMap, const cCountedArray<float>& realSum, const cCountedArray<float>& imaginarySum, const cCountedArray<float>& intensity, const cCountedArray<float>& phaseCosine, const cCountedArray<float>& phaseSine, const cImageDimensions& targetSize, const float& numericalAperture, const float& refractiveIndex, const float& lambda, const float& sphericalAberration, const float& axialPhaseFactor, const float& dz, const float& dRho, const unsigned& oversampling, const int& modality) override;
    void Generate3DGaussian(const cFloatImagePtr& image, float dx, float dy, float dz, float fwhmX, float fwhmY, float fwhmZ) override;
    void Generate3DHourglass(const cFloatImagePtr& image, float dx, float dy, float dz, float slope, float radius) override;
    void Generate3DDvorakHourGlass(const cFloatImagePtr& in, const cFloatImagePtr& out, float dx, float dy, float dz, float numericalAperture, float refractiveIndex, float lambda, float factor, bool flat) override;
    void GenerateCylinder(const cFloatImagePtr& image, float dx, float dy, float dz, float halfHeight, float radius, float value) override;
    void FillCylinder(const cFloatImagePtr& image, float dx, float dy, float dz, float halfHeight, float radius, float value) override;
    void GenerateDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz, float slope, float value) override;
    void FillDoubleCone(const cFloatImagePtr& image, float dx, float dy, float dz, float slope, float value) override;
    void CreateDoubleTruncatedCone(const cFloatImagePtr& image, float dx, float dy, float dz, float minimumZ, float slope, float value, int mode) override;
    void GeneratePowerSpectrumMask(const cFloatImagePtr& re, const cFloatImagePtr& im, int unused, float fraction) override;
    void ReservedHandleOperation(const cFloatImagePtr& image, void* handle) override;
    void SetImageToConstant(const cFloatImagePtr& image, float value) override;
    void SetRoiToConstant(const cFloatImagePtr& image, const cImageBox& box, float value) override;
    void RetrievePsfCenteringBrightestSlice(const cFloatImagePtr& out, const cFloatImagePtr& in) override;
    void FFTShift(const cFloatImagePtr& in, const cFloatImagePtr& work, const cFloatImagePtr& out) override;
    void CopyImage(const cFloatImagePtr& in, const cFloatImagePtr& out) override;
    void CopyImageSlice(const cFloatImagePtr& in, const unsigned& zIn, const cFloatImagePtr& out, const unsigned& zOut) override;
    void CopyImageRealToComplex(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& out) override;
    void CopyImageComplexToReal(const cFloatImagePtr& in, const cFloatImagePtr& re, const cFloatImagePtr& im, const float& scale) override;
    void CopyRectangularRoi(const cFloatImagePtr& in, const cFloatImagePtr& out, const cImageBox& boxIn, const cImageBox& boxOut) override;
    void CopyReal(const float* source, float* target, const int& count) override;
    void ConvertRealtoShort(const cFloatImagePtr& in, const cShortImagePtr& out) override;
    void ConvertRealtoByteRoi(const cFloatImagePtr& in, const cByteImagePtr& out, const cCountedBox& boxIn, const cCountedBox& boxOut) override;
    void ConvertRealtoShortRoi(const cFloatImagePtr& in, const cShortImagePtr& out, const cCountedBox& boxIn, const cCountedBox& boxOut) override;
    void ConvertUnsignedByteToReal(const uint8_t* source, float* target, const int& count) override;
    void ConvertUnsignedByteToReal(const cByteImagePtr& in, const cFloatImagePtr& out) override;
    void ConvertUnsignedShortToReal(const uint16_t* source, float* target, const int& count) override;
    void ConvertUnsignedShortToReal(const cShortImagePtr& in, const cFloatImagePtr& out) override;
    void ConvertUnsignedLongToReal(const uint32_t* source, float* target, const int& count) override;
    void ConvertInterleavedByteToReal(const uint8_t* source, float* target, const int& first, const int& count, int channel) override;
    bool IsPowerOfTwoSize(const unsigned& sizeX, const unsigned& sizeY) override;
    int NearestPowerOfTwo(int value, int step) override;
    void WienerFilteringImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm, const cFloatImagePtr& hRe, const cFloatImagePtr& hIm, float k, const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) override;
    int CalculateStatisticsByMask(const cFloatImagePtr& image, const cFloatImagePtr& mask, float dx, float dy, cCountedArray<float> histogram, cImageMathStatistics* statistics) override;
    void CalculateMaskPerimeter(const cFloatImagePtr& in, const cFloatImagePtr& out) override;
    float CalculateMaskPerimeter(const cFloatImagePtr& mask, float dx, float dy) override;
    int FloodFillImage(const cFloatImagePtr& image, int unused, int seedX, int seedY, float value) override;
    void LogicalANDImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void LogicalORImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void LogicalXORImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) override;
    void TransposeImage(const cFloatImagePtr& in, const cFloatImagePtr& out) override;

protected:
    // For a back end that builds on this one: its own name, and whether its PSF kernel's
    // pupil phase carries the focus-balancing term (the plain kernel leaves it out).
    cImageMathGeneric(const char* objectName, bool balancePsfFocus)
        : cImageMath(objectName), mBalancePsfFocus(balancePsfFocus) {}

    // The checks every operation makes before it writes a pixel, in this order; each
    // fails with a cException of code 2 whose message ends in the operation's name.
    void RequireImages(const char* operation, std::initializer_list<const cFloatImagePtr*> images) const;
    void RequireSameSize(const char* operation, const cFloatImagePtr& a, const cFloatImagePtr& b) const;
    // CountPixelsBelowLimits' arguments: an image, sorted limits and a count for each.
    // Whether there is anything to count (false for no limits).
    bool RequireLimitCounts(const cFloatImagePtr& image, const std::vector<float>& limits,
                            const std::vector<uint64_t>& counts) const;
    // The line search's images: data, blurred and direction of one size; work of that size,
    // or of its slice's for a single plane (it holds two slices).
    void RequireLineSearchImages(const cFloatImagePtr& data, const cFloatImagePtr& blurred,
                                 const cFloatImagePtr& direction, const cFloatImagePtr& work) const;
    // A split side of a complex copy has half the width of the interleaved image and at least
    // its lines (a missing side always fits); the copy covers the slices all sides have.
    static bool FitsInterleaved(const cFloatImagePtr& split, const cImageDimensions& interleaved);
    static uint32_t InterleavedDepth(const cImageDimensions& interleaved, const cFloatImagePtr& re,
                                     const cFloatImagePtr& im);

private:
    const bool mBalancePsfFocus = false;

    void RequireRoiInside(const char* operation, const cFloatImagePtr& image, const cImageBox& box) const;
    // Box sizes are the differences of the corners as given, before any sorting.
    void RequireSameRoiSize(const char* operation, const cImageBox& a, const cImageBox& b) const;
    // The box with each axis's corners in ascending order.
    static cImageBox Sorted(const cImageBox& box);
};

} // namespace Ovidane
