#pragma once
#include "math/cImageMathGeneric.h"

namespace Ovidane {

// The image math that every run uses: the element-wise operations, the reductions and the
// copies and conversions run on Google Highway's vector kernels (HighwayKernels.h), built for
// several instruction sets and chosen at run time. Whole stacks or slices go to a kernel in one
// call where the layout allows, lines otherwise.
//
// Where the vector form answers otherwise than the plain one, it does so on purpose, and the
// comments of the members say how: guards that replace divisors and arguments below 1e-20
// rather than testing for 0, a closed range for counts, saturating conversions, projections
// and position searches per line or per slice. Everything that has no vector form is the
// plain code of the base class; the few plain operations that are built on other operations
// are handed whole to the fallback, so that their inner steps stay plain too.
//
// The base's PSF kernel runs with the focus-balancing term in the pupil phase, which shifts
// the reference focus against the fourth-order aberration so that an aberrated PSF keeps its
// brightest point in the focal plane.
class cImageMathHighway : public cImageMathGeneric {
public:
    // `fallback` is the plain image math of the same thread.
    explicit cImageMathHighway(cImageMathPtr fallback);

    void AddImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                  const cFloatImagePtr& out) override;
    void AddImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
                     const cImageBox& boxA, const cImageBox& boxB,
                     const cImageBox& boxOut) override;
    void AddImageByConstant(const cFloatImagePtr& a, const float& c,
                            const cFloatImagePtr& out) override;
    void SubtractImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                       const cFloatImagePtr& out) override;
    void AbsoluteValueImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void SubtractImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                          const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB,
                          const cImageBox& boxOut) override;
    void SubtractImageByConstant(const cFloatImagePtr& a, const float& c,
                                 const cFloatImagePtr& out) override;
    void SubtractImageSliceByConstant(const cFloatImagePtr& image, const float& c,
                                      const unsigned& z) override;
    void SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& c,
                                             const float& threshold, const float& value,
                                             int mode) override;
    void SubtractThresholdAndScaleImage(const cFloatImagePtr& image, const float& c,
                                        const float& threshold, const float& value,
                                        const float& scale) override;
    void SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& threshold,
                                             const float& value, int mode) override;
    void MultiplyImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                       const cFloatImagePtr& out) override;
    void MultiplyImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                          const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB,
                          const cImageBox& boxOut) override;
    void MultiplyImageByConstant(const cFloatImagePtr& a, const float& c,
                                 const cFloatImagePtr& out) override;
    void MultiplyImageSliceByConstant(const cFloatImagePtr& image, const float& c,
                                      const unsigned& z) override;
    void MultiplyComplexImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                              const cFloatImagePtr& out, const float& scale,
                              int conjugate) override;
    using cImageMathGeneric::MultiplyComplexImage;
    void DivideImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                     const cFloatImagePtr& out) override;
    void PowerOfImageDivisionWithThreshold(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                           const cFloatImagePtr& out, const float& exponent,
                                           const float& threshold, const float& value) override;
    void SquareRootImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void SquareImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void LogImage(const cFloatImagePtr& a, const cFloatImagePtr& out) override;
    void GoodsRoughnessPenalty(const cFloatImagePtr& estimate, const cFloatImagePtr& reference,
                               const cFloatImagePtr& work, const float& beta) override;

    float FindMinimumValue(const cFloatImagePtr& image) override;
    float FindMaximumValue(const cFloatImagePtr& image) override;
    void FindMinimumAndMaximumValue(const cFloatImagePtr& image, float& minimum,
                                    float& maximum) override;
    unsigned CountPixelInRange(const cFloatImagePtr& image, const float& low,
                               const float& high) override;
    void CountPixelsBelowLimits(const cFloatImagePtr& image, const std::vector<float>& limits,
                                std::vector<uint64_t>& counts) override;
    void FindMaxMinPositionOfMaximumValue(const cFloatImagePtr& image, cImagePosition& upper,
                                          cImagePosition& lower) override;
    float ComputeLogLikelihoodIncreaseByLineSearch(
        const cFloatImagePtr& data, const cFloatImagePtr& blurred, const cFloatImagePtr& direction,
        const cFloatImagePtr& work, const float& step, unsigned x0, unsigned xMargin, unsigned y0,
        unsigned yMargin, unsigned z0, unsigned zMargin) override;
    double SumImage(const cFloatImagePtr& image) override;
    double SumImageSquared(const cFloatImagePtr& image) override;
    float SumOfImageProduct(const cFloatImagePtr& a, const cFloatImagePtr& b) override;
    double AbsoluteSumImage(const cFloatImagePtr& image) override;
    double SumImageSlice(const cFloatImagePtr& image, const unsigned& z) override;
    double SumNormalizedImage(const cFloatImagePtr& image, float low, float high) override;
    float AverageImage(const cFloatImagePtr& image) override;

    void NonNegativityCompression(const cFloatImagePtr& a, float originalSum,
                                  const cFloatImagePtr& out) override;
    void NonNegativityCompressionInverted(const cFloatImagePtr& a, const cFloatImagePtr& out,
                                          float* pedestal) override;

    void MinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) override;
    void MinimumImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                      const cFloatImagePtr& out) override;
    void MaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) override;
    void SumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis,
                       int firstSlice, int lastSlice) override;
    void MaximumImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                      const cFloatImagePtr& out) override;
    void TripleMaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                 const cFloatImagePtr& xz, const cFloatImagePtr& zy) override;

    void Generate3DGaussian(const cFloatImagePtr& image, float dx, float dy, float dz, float fwhmX,
                            float fwhmY, float fwhmZ) override;
    void Generate3DHourglass(const cFloatImagePtr& image, float dx, float dy, float dz, float slope,
                             float radius) override;
    void CreateDoubleTruncatedCone(const cFloatImagePtr& image, float dx, float dy, float dz,
                                   float minimumZ, float slope, float value, int mode) override;

    void SetImageToConstant(const cFloatImagePtr& image, float value) override;
    void SetRoiToConstant(const cFloatImagePtr& image, const cImageBox& box, float value) override;
    void CopyImage(const cFloatImagePtr& in, const cFloatImagePtr& out) override;
    void CopyImageRealToComplex(const cFloatImagePtr& re, const cFloatImagePtr& im,
                                const cFloatImagePtr& out) override;
    void CopyImageComplexToReal(const cFloatImagePtr& in, const cFloatImagePtr& re,
                                const cFloatImagePtr& im, const float& scale) override;

    void ConvertRealtoShort(const cFloatImagePtr& in, const cShortImagePtr& out) override;
    void ConvertRealtoByteRoi(const cFloatImagePtr& in, const cByteImagePtr& out,
                              const cCountedBox& boxIn, const cCountedBox& boxOut) override;
    void ConvertRealtoShortRoi(const cFloatImagePtr& in, const cShortImagePtr& out,
                               const cCountedBox& boxIn, const cCountedBox& boxOut) override;
    void ConvertUnsignedByteToReal(const uint8_t* source, float* target, const int& count) override;
    void ConvertUnsignedByteToReal(const cByteImagePtr& in, const cFloatImagePtr& out) override;
    void ConvertUnsignedShortToReal(const uint16_t* source, float* target,
                                    const int& count) override;
    void ConvertUnsignedShortToReal(const cShortImagePtr& in, const cFloatImagePtr& out) override;

    int FloodFillImage(const cFloatImagePtr& image, int unused, int seedX, int seedY,
                       float value) override;
    void TransposeImage(const cFloatImagePtr& in, const cFloatImagePtr& out) override;

private:
    cImageMathPtr mFallback;

    // The box and slice checks of the plain back end, with its messages.
    void RequireBoxes(const char* operation, const cFloatImagePtr& a, const cFloatImagePtr& b,
                      const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB,
                      const cImageBox& boxOut) const;
    void RequireSlice(const char* operation, const cFloatImagePtr& image, unsigned z) const;
    // A failure that the vector form finds in its arguments where the plain one has none.
    [[noreturn]] void FailVector(const char* operation, const char* reason) const;
};

} // namespace Ovidane
