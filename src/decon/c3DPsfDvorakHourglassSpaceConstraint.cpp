#include "decon/c3DPsfDvorakHourglassSpaceConstraint.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

c3DPsfDvorakHourglassSpaceConstraint::c3DPsfDvorakHourglassSpaceConstraint(
    float dx, float dy, float dz, float numericalAperture, float refractiveIndex, float lambda,
    float factor, unsigned sizeX, unsigned sizeY, unsigned sizeZ, int flat)
    : cConstraint("c3DPsfDvorakHourglassSpaceConstraint"), mSpacing{dx, dy, dz},
      mNumericalAperture(numericalAperture), mRefractiveIndex(refractiveIndex), mLambda(lambda),
      mFactor(factor), mSize{sizeX, sizeY, sizeZ}, mFlat(flat) {}

void c3DPsfDvorakHourglassSpaceConstraint::Setup() {
    if (!mMask.IsNull())
        Fail("SpaceMask previously Instantiated in Setup", OVD_ERR_PARAMETER);
    Guard([&] {
        mMask = cFloatImagePtr(
            new cFloatImage(cImageDimensions{mSize[0], mSize[1], mSize[2]}, GetObjectName()));
        // The mask gives the generator its size and receives the shape.
        cImageMathManager::Instance().GetImageMath()->Generate3DDvorakHourGlass(
            mMask, mMask, mSpacing[0], mSpacing[1], mSpacing[2], mNumericalAperture,
            mRefractiveIndex, mLambda, mFactor, mFlat == 1);
    });
}

void c3DPsfDvorakHourglassSpaceConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    if (mMask.IsNull())
        Setup();
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        cFloatImagePtr work(new cFloatImage(image->GetDimensions(), GetObjectName()));
        math->MultiplyImage(image, mMask, work);
        math->CopyImage(work, image);
    });
}

} // namespace Ovidane
