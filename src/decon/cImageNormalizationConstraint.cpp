#include "decon/cImageNormalizationConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cImageNormalizationConstraint::cImageNormalizationConstraint(float target)
    : cConstraint("cImageNormalizationConstraint") {
    if (target > 0.0f)
        mTarget = target;
}

void cImageNormalizationConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->SubtractImageByConstantAndThreshold(image, 0.0f, 0.0f, 0.0f, 1);
        const unsigned depth = image->GetSizeZ();
        if (depth == 0)
            return;
        // An image of sum 0 comes out flat, every pixel target / elements per block.
        math->NormalizeImage(image, image, 0u, depth - 1, mTarget);
    });
}

} // namespace Ovidane
