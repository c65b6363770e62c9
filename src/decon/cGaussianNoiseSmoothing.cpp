#include "decon/cGaussianNoiseSmoothing.h"

#include "core/cException.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cGaussianNoiseSmoothing::cGaussianNoiseSmoothing(float spacingX, float spacingY, float spacingZ,
                                                 float width, uint32_t interval)
    : mSpacing{spacingX, spacingY, spacingZ}, mWidth(width), mInterval(interval) {
    SetObjectName("cGaussianNoiseSmoothing");
}

void cGaussianNoiseSmoothing::Initialize(const cImageDimensions& size) {
    Guard([&] {
        if (!Smooths())
            return;
        if (mTransferFunction && mSize == size)
            return;
        mSize = size;
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        cFloatImagePtr kernel(new cOvdImage<float>(size, GetObjectName()));
        math->Generate3DGaussian(kernel, mSpacing[0], mSpacing[1], mSpacing[2], mWidth, mWidth,
                                 mWidth);
        // Sum 1 exactly, so that the blur keeps the estimate's brightness.
        math->NormalizeImage(kernel, kernel, 0u, size.z - 1, 1.0f);
        cFFTManager& transforms = cFFTManager::Instance();
        cImageDimensions packed;
        transforms.GetPackedDimensions(size, packed);
        mTransferFunction = new cOvdImage<float>(packed, GetObjectName());
        transforms.FFTPacked(kernel, mTransferFunction, 1);
    });
}

void cGaussianNoiseSmoothing::Apply(cFloatImagePtr& image, uint32_t iteration) {
    Guard([&] {
        if (image.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!Smooths())
            return;
        if (mTransferFunction.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(image->GetDimensions() == mSize))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
        if (iteration % mInterval != 0)
            return;
        cFFTManager::Instance().ConvolveOTF(image, mTransferFunction, image, 2);
        // The transform leaves tiny negative ripples where the image is dark; an estimate of
        // light has none.
        cImageMathManager::Instance().GetImageMath()->SubtractImageByConstantAndThreshold(
            image, 0.0f, 0.0f, 0.0f, 1);
    });
}

} // namespace Ovidane
