#include "decon/cFrequencyMaskConstraint.h"

#include <cmath>

#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cFrequencyMaskConstraint::cFrequencyMaskConstraint(std::string objectName, bool confocal,
                                                   bool observe)
    : cConstraint(std::move(objectName)), mConfocal(confocal), mObserve(observe) {}

cFrequencyMaskConstraint::cPassband cFrequencyMaskConstraint::Passband() const {
    cPassband band{};
    band.fx = 1.0f / (static_cast<float>(mSize[0]) * mSpacing[0]);
    band.fy = 1.0f / (static_cast<float>(mSize[1]) * mSpacing[1]);
    band.fz = 1.0f / (static_cast<float>(mSize[2]) * mSpacing[2]);
    band.radius = 2.0f * mNumericalAperture / mLambda;
    // The cone's half angle about the axial frequency is the complement of the objective's
    // aperture angle. The constant is π/2 in single precision: with NA equal to n the slope
    // comes out exactly 0.
    const float apertureAngle = std::asin(mNumericalAperture / mRefractiveIndex);
    const float complement = 1.5707964f - apertureAngle;
    band.coneSlope = std::fabs(std::tan(complement));
    return band;
}

void cFrequencyMaskConstraint::CreateMask() {
    mMask = cFloatImagePtr(
        new cFloatImage(cImageDimensions{mSize[0], mSize[1], mSize[2]}, GetObjectName()));
}

void cFrequencyMaskConstraint::ApplyMask(const cFloatImagePtr& image) {
    if (mMask.IsNull())
        Setup();
    // The imaginary part of the spectrum, for the length of the call.
    cFloatImagePtr imaginary(new cFloatImage(image->GetDimensions(), GetObjectName()));
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    cFFTManager& transforms = cFFTManager::Instance();
    if (mConfocal)
        math->SquareRootImage(image, image);
    transforms.FFTFwd(image, cFloatImagePtr(), image, imaginary);
    math->MultiplyImage(image, mMask, image);
    math->MultiplyImage(imaginary, mMask, imaginary);
    transforms.FFTInv(image, imaginary, image, cFloatImagePtr());
    if (mConfocal)
        math->SquareImage(image, image);
}

} // namespace Ovidane
