#include "decon/cImageNonNegativityCompressionConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cImageNonNegativityCompressionConstraint::cImageNonNegativityCompressionConstraint(
    float originalSum)
    : cConstraint("cImageNonNegativityCompressionConstraint"), mOriginalSum(originalSum) {}

void cImageNonNegativityCompressionConstraint::Setup() {
    if (!(mOriginalSum > 0.0f))
        Fail("Invalid Original Image Sum in cImageNonNegativityCompressionConstraint",
             OVD_ERR_PARAMETER);
}

void cImageNonNegativityCompressionConstraint::SetOriginalImageSum(float value) {
    if (!(value > 0.0f))
        Fail("Invalid Original Image Sum in SetOriginalImageSum", OVD_ERR_PARAMETER);
    mOriginalSum = value;
}

void cImageNonNegativityCompressionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        if (mTransmittedLight)
            math->NonNegativityCompressionInverted(image, image, &mPedestal);
        else
            math->NonNegativityCompression(image, mOriginalSum, image);
    });
}

} // namespace Ovidane
