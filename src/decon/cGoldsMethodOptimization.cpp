#include "decon/cGoldsMethodOptimization.h"

#include "core/cException.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cGoldsMethodOptimization::cGoldsMethodOptimization() {
    SetObjectName("cGoldsMethodOptimization");
}

void cGoldsMethodOptimization::Apply(cFloatImagePtr& object, cFloatImagePtr& original,
                                     cFloatImagePtr& psf) {
    Guard([&] {
        if (object.IsNull() || original.IsNull() || psf.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(object->GetDimensions() == original->GetDimensions()) ||
            !(psf->GetDimensions() == original->GetDimensions()))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
        if (mWorkImage.IsNull() || !(mWorkImage->GetDimensions() == object->GetDimensions()))
            mWorkImage = new cOvdImage<float>(object->GetDimensions(), GetObjectName());

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const cFloatImagePtr& W = mWorkImage;
        cFFTManager::Instance().ConvolveKept(object, mPsfTransform.Of(psf), W, 2);
        math->DivideImage(original, W, W);
        math->MultiplyImage(object, W, W);
        // Below 0, not below 1e-20: a pixel that is 0 stays 0, as the ratio method has it.
        math->SubtractImageByConstantAndThreshold(W, 0.0f, 0.0f, 1e-20f, 1);
        math->CopyImage(W, object);
    });
}

} // namespace Ovidane
