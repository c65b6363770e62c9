#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"

#include "core/cException.h"
#include "math/HighwayKernels.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cSpecifiedValueBackgroundSubtractionConstraint::cSpecifiedValueBackgroundSubtractionConstraint(
    float value)
    : cPixelCorrection("cSpecifiedValueBackgroundSubtractionConstraint"), mValue(value) {}

void cSpecifiedValueBackgroundSubtractionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathManager::Instance().GetImageMath()->SubtractImageByConstantAndThreshold(
            image, mValue, 0.0f, 0.0f, 1);
    });
}

void cSpecifiedValueBackgroundSubtractionConstraint::CorrectLine(float* pixels, std::size_t count,
                                                                 uint32_t) const {
    HighwayKernels::Unary(HighwayKernels::eUnary::ThresholdBelow, pixels, pixels, count,
                          {mValue, 0.0f, 0.0f});
}

} // namespace Ovidane
