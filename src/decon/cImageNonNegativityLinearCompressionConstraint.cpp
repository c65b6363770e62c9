#include "decon/cImageNonNegativityLinearCompressionConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cImageNonNegativityLinearCompressionConstraint::cImageNonNegativityLinearCompressionConstraint(
    float originalSum)
    : cConstraint("cImageNonNegativityLinearCompressionConstraint"), mOriginalSum(originalSum) {}

void cImageNonNegativityLinearCompressionConstraint::Setup() {
    if (!(mOriginalSum > 0.0f))
        Fail("Invalid Original Image Sum in cImageNonNegativityLinearCompressionConstraint",
             OVD_ERR_PARAMETER);
}

void cImageNonNegativityLinearCompressionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathManager::Instance().GetImageMath()->NonNegativityLinearCompression(
            image, mOriginalSum, kToleratedNegativeShare, image);
    });
}

} // namespace Ovidane
