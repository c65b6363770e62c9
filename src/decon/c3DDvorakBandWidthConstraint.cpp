#include "decon/c3DDvorakBandWidthConstraint.h"

#include "math/cImageMathManager.h"

namespace Ovidane {

c3DDvorakBandWidthConstraint::c3DDvorakBandWidthConstraint(
    float dx, float dy, float dz, float numericalAperture, float refractiveIndex, float lambda,
    unsigned sizeX, unsigned sizeY, unsigned sizeZ, bool confocal, bool observe)
    : cFrequencyMaskConstraint("c3DDvorakBandWidthConstraint", confocal, observe) {
    // Each value takes its field as soon as it has passed; the first refusal ends the
    // constructor without a word.
    if (!(refractiveIndex > 0.0f))
        return;
    mRefractiveIndex = refractiveIndex;
    if (!(lambda > 0.0f))
        return;
    mLambda = lambda;
    if (!(numericalAperture > 0.0f) || !(numericalAperture <= refractiveIndex))
        return;
    mNumericalAperture = numericalAperture;
    if (sizeX == 0 || sizeY == 0 || sizeZ == 0)
        return;
    mSize[0] = sizeX;
    mSize[1] = sizeY;
    mSize[2] = sizeZ;
    if (!(dx > 0.0f) || !(dy > 0.0f) || !(dz > 0.0f))
        return;
    mSpacing[0] = dx;
    mSpacing[1] = dy;
    mSpacing[2] = dz;
    mArgumentsValid = true;
}

void c3DDvorakBandWidthConstraint::Setup() {
    Guard([&] {
        // After a refused constructor the fields behind the refusal mean nothing, so no
        // mask is drawn from them: Apply then fails in the multiplication, as the other
        // band limit does when it declines.
        if (!mMask.IsNull() || !mArgumentsValid)
            return;

        CreateMask();
        const cPassband band = Passband();
        const float halfHeight = mNumericalAperture * mNumericalAperture / (2.0f * mLambda);
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->GenerateCylinder(mMask, band.fx, band.fy, band.fz, halfHeight, band.radius, 1.0f);

        // The cone is cleared only above the axial frequency 3/(2·d), d growing with the
        // lateral extent X·dx of the stack.
        const float extent = static_cast<float>(static_cast<double>(mSize[0]) * 0.5 * mSpacing[0] *
                                                band.coneSlope * 2.0 * 1.5);
        if (extent == 0.0f) {
            math->FillDoubleCone(mMask, band.fx, band.fy, band.fz, band.coneSlope, 0.0f);
        } else {
            const float minimumZ = 3.0f / (2.0f * extent);
            math->CreateDoubleTruncatedCone(mMask, band.fx, band.fy, band.fz, minimumZ,
                                            band.coneSlope, 0.0f, 1);
        }
        math->SetRoiToConstant(mMask, cImageBox{}, 1.0f);
    });
}

void c3DDvorakBandWidthConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        return;
    Guard([&] { ApplyMask(image); });
}

} // namespace Ovidane
