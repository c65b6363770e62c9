#include "decon/cAverageMaskedBackgroundSubtractionConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cAverageMaskedBackgroundSubtractionConstraint::cAverageMaskedBackgroundSubtractionConstraint()
    : cConstraint("cAverageMaskedBackgroundSubtractionConstraint") {}

void cAverageMaskedBackgroundSubtractionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull() || mMask.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const float level = math->UnMaskedAverageImage(image, mMask);
        math->SubtractImageByConstantAndThreshold(image, level, 0.0f, 0.0f, 1);
    });
}

} // namespace Ovidane
