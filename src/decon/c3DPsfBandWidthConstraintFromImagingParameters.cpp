#include "decon/c3DPsfBandWidthConstraintFromImagingParameters.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

c3DPsfBandWidthConstraintFromImagingParameters::c3DPsfBandWidthConstraintFromImagingParameters(
    float dx, float dy, float dz, float numericalAperture, float refractiveIndex, float lambda,
    unsigned sizeX, unsigned sizeY, unsigned sizeZ, bool confocal, bool observe)
    : cFrequencyMaskConstraint("c3DPsfBandWidthConstraintFromImagingParameters", confocal,
                               observe) {
    mSpacing[0] = dx;
    mSpacing[1] = dy;
    mSpacing[2] = dz;
    mNumericalAperture = numericalAperture;
    mRefractiveIndex = refractiveIndex;
    mLambda = lambda;
    mSize[0] = sizeX;
    mSize[1] = sizeY;
    mSize[2] = sizeZ;
}

void c3DPsfBandWidthConstraintFromImagingParameters::Setup() {
    Guard([&] {
        const bool opticsValid = mRefractiveIndex > 0.0f && mLambda > 0.0f &&
                                 mNumericalAperture > 0.0f &&
                                 mNumericalAperture <= mRefractiveIndex;
        const bool sizeValid = mSize[0] > 0 && mSize[1] > 0 && mSize[2] > 0;
        const bool spacingValid = mSpacing[0] > 0.0f && mSpacing[1] > 0.0f && mSpacing[2] > 0.0f;
        // Declining leaves the mask empty; Apply then fails in the multiplication rather
        // than limiting a PSF by meaningless optics.
        if (!opticsValid || !sizeValid || !spacingValid || !mMask.IsNull())
            return;

        CreateMask();
        const cPassband band = Passband();
        const float halfHeight =
            mNumericalAperture * mNumericalAperture / (2.0f * mLambda * mRefractiveIndex);
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->GenerateCylinder(mMask, band.fx, band.fy, band.fz, halfHeight, band.radius, 1.0f);
        math->FillDoubleCone(mMask, band.fx, band.fy, band.fz, band.coneSlope, 0.0f);
        math->SetRoiToConstant(mMask, cImageBox{}, 1.0f);
    });
}

void c3DPsfBandWidthConstraintFromImagingParameters::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] { ApplyMask(image); });
}

} // namespace Ovidane
