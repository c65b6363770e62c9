// Stubs still unbuilt below answer "Not built yet".
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "math/cImageMathGeneric.h"

#include <algorithm>
#include <string>

#include "core/cException.h"

namespace Ovidane {

void cImageMathGeneric::NotBuiltYet(const char* operation) const {
    Fail(std::string("Not built yet: ") + operation, 2);
}

void cImageMathGeneric::RequireImages(const char* operation,
                                      std::initializer_list<const cFloatImagePtr*> images) const {
    for (const cFloatImagePtr* image : images)
        if (image->IsNull())
            Fail(std::string("NULL input image in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireSameSize(const char* operation, const cFloatImagePtr& a,
                                        const cFloatImagePtr& b) const {
    if (!(a->GetDimensions() == b->GetDimensions()))
        Fail(std::string("Invalid Dimensions in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireRoiInside(const char* operation, const cFloatImagePtr& image,
                                         const cImageBox& box) const {
    if (!image->IsRoiInside(box))
        Fail(std::string("Roi out of bounds in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireSameRoiSize(const char* operation, const cImageBox& a,
                                           const cImageBox& b) const {
    if (a.x1 - a.x0 != b.x1 - b.x0 || a.y1 - a.y0 != b.y1 - b.y0 || a.z1 - a.z0 != b.z1 - b.z0)
        Fail(std::string("InvalidRoi size in ") + operation, OVD_ERR_PARAMETER);
}

cImageBox cImageMathGeneric::Sorted(const cImageBox& box) {
    return {std::min(box.x0, box.x1), std::min(box.y0, box.y1), std::min(box.z0, box.z1),
            std::max(box.x0, box.x1), std::max(box.y0, box.y1), std::max(box.z0, box.z1)};
}

void cImageMathGeneric::AddImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("AddImage");
}

void cImageMathGeneric::AddImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) {
    NotBuiltYet("AddImageRoi");
}

void cImageMathGeneric::AddImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) {
    NotBuiltYet("AddImageByConstant");
}

void cImageMathGeneric::SubtractImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("SubtractImage");
}

void cImageMathGeneric::AbsoluteValueImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    NotBuiltYet("AbsoluteValueImage");
}

void cImageMathGeneric::SubtractImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) {
    NotBuiltYet("SubtractImageRoi");
}

void cImageMathGeneric::SubtractImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) {
    NotBuiltYet("SubtractImageByConstant");
}

void cImageMathGeneric::SubtractImageSliceByConstant(const cFloatImagePtr& image, const float& c, const unsigned& z) {
    NotBuiltYet("SubtractImageSliceByConstant");
}

void cImageMathGeneric::SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& c, const float& threshold, const float& value, int mode) {
    NotBuiltYet("SubtractImageByConstantAndThreshold");
}

void cImageMathGeneric::SubtractImageByConstantAndThreshold(const cFloatImagePtr& image, const float& threshold, const float& value, int mode) {
    NotBuiltYet("SubtractImageByConstantAndThreshold");
}

void cImageMathGeneric::ThresholdAndScaleImage(const cFloatImagePtr& image, const float& low, const float& high, const float& outLow, const float& outHigh) {
    NotBuiltYet("ThresholdAndScaleImage");
}

void cImageMathGeneric::MultiplyImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("MultiplyImage");
}

void cImageMathGeneric::MultiplyImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB, const cImageBox& boxOut) {
    NotBuiltYet("MultiplyImageRoi");
}

void cImageMathGeneric::MultiplyImageByConstant(const cFloatImagePtr& a, const float& c, const cFloatImagePtr& out) {
    NotBuiltYet("MultiplyImageByConstant");
}

void cImageMathGeneric::MultiplyImageSliceByConstant(const cFloatImagePtr& image, const float& c, const unsigned& z) {
    NotBuiltYet("MultiplyImageSliceByConstant");
}

void cImageMathGeneric::MultiplyComplexImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const float& scale, int conjugate) {
    NotBuiltYet("MultiplyComplexImage");
}

void cImageMathGeneric::MultiplyComplexImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm, const cFloatImagePtr& bRe, const cFloatImagePtr& bIm, const cFloatImagePtr& outRe, const cFloatImagePtr& outIm, const float& scale, int conjugate) {
    NotBuiltYet("MultiplyComplexImage");
}

void cImageMathGeneric::DivideImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("DivideImage");
}

void cImageMathGeneric::PowerOfImageDivisionWithThreshold(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, const float& exponent, const float& threshold, const float& value) {
    NotBuiltYet("PowerOfImageDivisionWithThreshold");
}

void cImageMathGeneric::SquareRootImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    NotBuiltYet("SquareRootImage");
}

void cImageMathGeneric::SquareImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    NotBuiltYet("SquareImage");
}

void cImageMathGeneric::LogImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    NotBuiltYet("LogImage");
}

void cImageMathGeneric::NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, const unsigned& firstSlice, const unsigned& lastSlice, const float& target) {
    NotBuiltYet("NormalizeImage");
}

void cImageMathGeneric::NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, float low, float high) {
    NotBuiltYet("NormalizeImage");
}

void cImageMathGeneric::NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out, float gamma) {
    NotBuiltYet("NormalizeImage");
}

float cImageMathGeneric::FindMinimumValue(const cFloatImagePtr& image) {
    NotBuiltYet("FindMinimumValue");
}

float cImageMathGeneric::FindMaximumValue(const cFloatImagePtr& image) {
    NotBuiltYet("FindMaximumValue");
}

unsigned cImageMathGeneric::CountPixelInRange(const cFloatImagePtr& image, const float& low, const float& high) {
    NotBuiltYet("CountPixelInRange");
}

double cImageMathGeneric::SumImage(const cFloatImagePtr& image) {
    NotBuiltYet("SumImage");
}

double cImageMathGeneric::SumImageSquared(const cFloatImagePtr& image) {
    NotBuiltYet("SumImageSquared");
}

float cImageMathGeneric::SumOfImageProduct(const cFloatImagePtr& a, const cFloatImagePtr& b) {
    NotBuiltYet("SumOfImageProduct");
}

double cImageMathGeneric::AbsoluteSumImage(const cFloatImagePtr& image) {
    NotBuiltYet("AbsoluteSumImage");
}

double cImageMathGeneric::SumImageSlice(const cFloatImagePtr& image, const unsigned& z) {
    NotBuiltYet("SumImageSlice");
}

float cImageMathGeneric::AverageImage(const cFloatImagePtr& image) {
    NotBuiltYet("AverageImage");
}

float cImageMathGeneric::MaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) {
    NotBuiltYet("MaskedAverageImage");
}

float cImageMathGeneric::UnMaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) {
    NotBuiltYet("UnMaskedAverageImage");
}

void cImageMathGeneric::RadialAverage(const cFloatImagePtr& image, const cFloatImagePtr& work) {
    NotBuiltYet("RadialAverage");
}

void cImageMathGeneric::NonNegativityCompression(const cFloatImagePtr& a, float originalSum, const cFloatImagePtr& out) {
    NotBuiltYet("NonNegativityCompression");
}

void cImageMathGeneric::NonNegativityLinearCompression(const cFloatImagePtr& a, float originalSum, float limit, const cFloatImagePtr& out) {
    NotBuiltYet("NonNegativityLinearCompression");
}

void cImageMathGeneric::NonNegativityCompressionInverted(const cFloatImagePtr& a, const cFloatImagePtr& out, float* pedestal) {
    NotBuiltYet("NonNegativityCompressionInverted");
}

void cImageMathGeneric::MinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) {
    NotBuiltYet("MinimumProjection");
}

void cImageMathGeneric::MinimumImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("MinimumImage");
}

void cImageMathGeneric::MaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis) {
    NotBuiltYet("MaximumProjection");
}

void cImageMathGeneric::MaximumImage(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out) {
    NotBuiltYet("MaximumImage");
}

void cImageMathGeneric::TripleMaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz, const cFloatImagePtr& zy) {
    NotBuiltYet("TripleMaximumProjection");
}

void cImageMathGeneric::TripleMinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz, const cFloatImagePtr& zy) {
    NotBuiltYet("TripleMinimumProjection");
}

void cImageMathGeneric::TripleMaximumProjectionRoi(const cFloatImagePtr& in, const cFloatImagePtr& out, const cImageBox& box, const cImageBox& xyBox, const cImageBox& xzBox, const cImageBox& zyBox) {
    NotBuiltYet("TripleMaximumProjectionRoi");
}

void cImageMathGeneric::TripleSumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz, const cFloatImagePtr& zy) {
    NotBuiltYet("TripleSumProjection");
}

void cImageMathGeneric::SumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis, int firstSlice, int lastSlice) {
    NotBuiltYet("SumProjection");
}

void cImageMathGeneric::SetImageToConstant(const cFloatImagePtr& image, float value) {
    NotBuiltYet("SetImageToConstant");
}

void cImageMathGeneric::SetRoiToConstant(const cFloatImagePtr& image, const cImageBox& box, float value) {
    NotBuiltYet("SetRoiToConstant");
}

void cImageMathGeneric::CopyImage(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    NotBuiltYet("CopyImage");
}

void cImageMathGeneric::CopyImageSlice(const cFloatImagePtr& in, const unsigned& zIn, const cFloatImagePtr& out, const unsigned& zOut) {
    NotBuiltYet("CopyImageSlice");
}

void cImageMathGeneric::CopyImageRealToComplex(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& out) {
    NotBuiltYet("CopyImageRealToComplex");
}

void cImageMathGeneric::CopyImageComplexToReal(const cFloatImagePtr& in, const cFloatImagePtr& re, const cFloatImagePtr& im, const float& scale) {
    NotBuiltYet("CopyImageComplexToReal");
}

void cImageMathGeneric::CopyRectangularRoi(const cFloatImagePtr& in, const cFloatImagePtr& out, const cImageBox& boxIn, const cImageBox& boxOut) {
    NotBuiltYet("CopyRectangularRoi");
}

void cImageMathGeneric::CopyReal(const float* source, float* target, const int& count) {
    NotBuiltYet("CopyReal");
}

void cImageMathGeneric::ConvertRealtoShort(const cFloatImagePtr& in, const cShortImagePtr& out) {
    NotBuiltYet("ConvertRealtoShort");
}

void cImageMathGeneric::ConvertRealtoByteRoi(const cFloatImagePtr& in, const cByteImagePtr& out, const cCountedBox& boxIn, const cCountedBox& boxOut) {
    NotBuiltYet("ConvertRealtoByteRoi");
}

void cImageMathGeneric::ConvertRealtoShortRoi(const cFloatImagePtr& in, const cShortImagePtr& out, const cCountedBox& boxIn, const cCountedBox& boxOut) {
    NotBuiltYet("ConvertRealtoShortRoi");
}

void cImageMathGeneric::ConvertUnsignedByteToReal(const uint8_t* source, float* target, const int& count) {
    NotBuiltYet("ConvertUnsignedByteToReal");
}

void cImageMathGeneric::ConvertUnsignedByteToReal(const cByteImagePtr& in, const cFloatImagePtr& out) {
    NotBuiltYet("ConvertUnsignedByteToReal");
}

void cImageMathGeneric::ConvertUnsignedShortToReal(const uint16_t* source, float* target, const int& count) {
    NotBuiltYet("ConvertUnsignedShortToReal");
}

void cImageMathGeneric::ConvertUnsignedShortToReal(const cShortImagePtr& in, const cFloatImagePtr& out) {
    NotBuiltYet("ConvertUnsignedShortToReal");
}

void cImageMathGeneric::ConvertUnsignedLongToReal(const uint32_t* source, float* target, const int& count) {
    NotBuiltYet("ConvertUnsignedLongToReal");
}

void cImageMathGeneric::ConvertInterleavedByteToReal(const uint8_t* source, float* target, const int& first, const int& count, int channel) {
    NotBuiltYet("ConvertInterleavedByteToReal");
}

bool cImageMathGeneric::IsPowerOfTwoSize(const unsigned& sizeX, const unsigned& sizeY) {
    NotBuiltYet("IsPowerOfTwoSize");
}

int cImageMathGeneric::NearestPowerOfTwo(int value, int step) {
    NotBuiltYet("NearestPowerOfTwo");
}

} // namespace Ovidane
