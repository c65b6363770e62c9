#include "decon/cMinimumIntensityBackgroundSubtractionConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cMinimumIntensityBackgroundSubtractionConstraint::cMinimumIntensityBackgroundSubtractionConstraint()
    : cConstraint("cMinimumIntensityBackgroundSubtractionConstraint") {}

void cMinimumIntensityBackgroundSubtractionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const float level = math->FindMinimumValue(image);
        math->SubtractImageByConstantAndThreshold(image, level, 0.0f, 0.0f, 1);
    });
}

} // namespace Ovidane
