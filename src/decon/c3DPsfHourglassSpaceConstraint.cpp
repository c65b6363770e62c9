#include "decon/c3DPsfHourglassSpaceConstraint.h"

#include <algorithm>
#include <cmath>

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

c3DPsfHourglassSpaceConstraint::c3DPsfHourglassSpaceConstraint(
    float dx, float dy, float dz, float numericalAperture, float refractiveIndex, float lambda,
    float minimumRadius, unsigned sizeX, unsigned sizeY, unsigned sizeZ, bool confocal, bool skip)
    : cConstraint("c3DPsfHourglassSpaceConstraint"), mSpacing{dx, dy, dz},
      mNumericalAperture(numericalAperture), mRefractiveIndex(refractiveIndex), mLambda(lambda),
      mMinimumRadius(minimumRadius), mSize{sizeX, sizeY, sizeZ}, mConfocal(confocal), mSkip(skip) {
    // A size of 0 gets no mask; Setup refuses it with its own message.
    if (sizeX > 0 && sizeY > 0 && sizeZ > 0)
        mMask = Guard([&] {
            return cFloatImagePtr(
                new cFloatImage(cImageDimensions{sizeX, sizeY, sizeZ}, GetObjectName()));
        });
}

void c3DPsfHourglassSpaceConstraint::Setup() {
    if (!(mRefractiveIndex > 0.0f))
        Fail("Invalid Refractive Index in Setup", OVD_ERR_PARAMETER);
    if (!(mLambda > 0.0f))
        Fail("Invalid Lambda in Setup", OVD_ERR_PARAMETER);
    if (!(mNumericalAperture > 0.0f) || !(mNumericalAperture <= mRefractiveIndex))
        Fail("Invalid Numerical Aperture in Setup", OVD_ERR_PARAMETER);
    if (!(mMinimumRadius > 0.0f))
        Fail("Invalid Minimum Radius in Setup", OVD_ERR_PARAMETER);
    if (mSize[0] == 0 || mSize[1] == 0 || mSize[2] == 0)
        Fail("Invalid Dimensions in Setup", OVD_ERR_PARAMETER);
    if (!(mSpacing[0] > 0.0f) || !(mSpacing[1] > 0.0f) || !(mSpacing[2] > 0.0f))
        Fail("Invalid Spacings in Setup", OVD_ERR_PARAMETER);

    Guard([&] {
        const float waist = mMinimumRadius * 0.61f * mLambda / mNumericalAperture;
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        if (!mConfocal) {
            const float slope = std::tan(std::asin(mNumericalAperture / mRefractiveIndex));
            math->Generate3DHourglass(mMask, mSpacing[0], mSpacing[1], mSpacing[2], slope, waist);
        } else {
            // A half height of the whole depth keeps every slice.
            const float halfHeight = static_cast<float>(mSize[2]) * mSpacing[2];
            const float radius = std::max(mSpacing[0], mSpacing[1]) + waist;
            math->GenerateCylinder(mMask, mSpacing[0], mSpacing[1], mSpacing[2], halfHeight, radius,
                                   1.0f);
        }
    });
}

void c3DPsfHourglassSpaceConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    if (mSkip)
        return;
    Guard(
        [&] { cImageMathManager::Instance().GetImageMath()->MultiplyImage(image, mMask, image); });
}

} // namespace Ovidane
