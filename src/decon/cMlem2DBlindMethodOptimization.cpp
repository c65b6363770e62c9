#include "decon/cMlem2DBlindMethodOptimization.h"

#include "core/cException.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cMlem2DBlindMethodOptimization::cMlem2DBlindMethodOptimization(uint32_t objectUpdates,
                                                               uint32_t psfUpdates)
    : mObjectUpdates(objectUpdates), mPsfUpdates(psfUpdates) {
    SetObjectName("cMlem2DBlindMethodOptimization");
}

void cMlem2DBlindMethodOptimization::UpdateAgainst(cFloatImagePtr& moving,
                                                   const cFloatImagePtr& still,
                                                   cFloatImagePtr& original,
                                                   cAcceleration& acceleration, uint32_t count) {
    if (count == 0)
        return;
    cFFTManager& transforms = cFFTManager::Instance();
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    cImageDimensions packed;
    transforms.GetPackedDimensions(still->GetDimensions(), packed);
    if (mStillSpectrum.IsNull() || !(mStillSpectrum->GetDimensions() == packed))
        mStillSpectrum = new cFloatImage(packed, Contiguous3D, GetObjectName());
    transforms.ForwardHalfSpectrum(still, mStillSpectrum);

    for (uint32_t i = 0; i < count; ++i) {
        // x ⊗ h is h ⊗ x: the moving image is the one transformed.
        cFloatImagePtr reblurred = acceleration.GetReblurredImage();
        transforms.ConvolveHalfSpectrum(moving, mStillSpectrum, reblurred, 2);
        cFloatImagePtr factor = acceleration.GetMultiplicationFactor();
        math->DivideImage(original, reblurred, factor);
        transforms.ConvolveHalfSpectrum(factor, mStillSpectrum, factor, 1);
        if (!acceleration.MakesPlainUpdate()) {
            cFloatImagePtr estimate = acceleration.GetNewImageEstimate();
            if (estimate.IsNull())
                estimate = moving;
            math->MultiplyImage(moving, factor, estimate);
        }
        cFloatImagePtr partner = still;
        acceleration.Apply(moving, original, partner);
    }
}

void cMlem2DBlindMethodOptimization::Apply(cFloatImagePtr& object, cFloatImagePtr& original,
                                           cFloatImagePtr& psf) {
    Guard([&] {
        if (object.IsNull() || original.IsNull() || psf.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(object->GetDimensions() == original->GetDimensions()) ||
            !(psf->GetDimensions() == original->GetDimensions()))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
        if (mObjectAcceleration.IsNull() || mPsfAcceleration.IsNull())
            Fail("NULL acceleration in Apply", OVD_ERR_PARAMETER);
        mObjectAcceleration->SetDimensions(object->GetDimensions());
        mPsfAcceleration->SetDimensions(object->GetDimensions());

        UpdateAgainst(psf, object, original, *mPsfAcceleration, mPsfUpdates);
        UpdateAgainst(object, psf, original, *mObjectAcceleration, mObjectUpdates);

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->SubtractImageByConstantAndThreshold(psf, 0.0f, kEstimateFloor, kEstimateFloor, 1);
        math->SubtractImageByConstantAndThreshold(object, 0.0f, kEstimateFloor, kEstimateFloor, 1);
    });
}

void cMlem2DBlindMethodOptimization::RetrievePsf(cFloatImagePtr& psf) {
    Guard([&] {
        if (psf.IsNull())
            return;
        cFloatImagePtr scaled(new cFloatImage(psf->GetDimensions(), Contiguous3D, GetObjectName()));
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const unsigned first = 0, last = psf->GetDimensions().z - 1;
        math->NormalizeImage(psf, scaled, first, last, 1.0f);
        psf = scaled;
    });
}

} // namespace Ovidane
