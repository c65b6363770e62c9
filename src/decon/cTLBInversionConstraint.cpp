#include "decon/cTLBInversionConstraint.h"

#include "core/cException.h"
#include "math/HighwayKernels.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {
constexpr float kGuard = 1e-20f;
} // namespace

cTLBInversionConstraint::cTLBInversionConstraint(float minimum, float maximum)
    : cPixelCorrection("cTLBInversionConstraint"), mMinimum(minimum), mMaximum(maximum) {}

void cTLBInversionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->MultiplyImageByConstant(image, -1.0f, image);
        // −p − (−(minimum + maximum)) = (minimum + maximum) − p.
        const float level = -(mMinimum + mMaximum);
        math->SubtractImageByConstantAndThreshold(image, level, kGuard, kGuard, 1);
    });
}

void cTLBInversionConstraint::CorrectLine(float* pixels, std::size_t count, uint32_t) const {
    namespace K = HighwayKernels;
    K::Unary(K::eUnary::MultiplyConstant, pixels, pixels, count, {-1.0f});
    K::Unary(K::eUnary::ThresholdBelow, pixels, pixels, count,
             {-(mMinimum + mMaximum), kGuard, kGuard});
}

} // namespace Ovidane
