#pragma once
#include <cstdint>

#include "decon/cConstraint.h"

namespace Ovidane {

// Space mask of a PSF with its waist given as a factor of the lateral resolution
// 0.61·λ/NA: an hourglass whose sides open with the aperture angle, or, when flat is 1, a
// cylinder of the waist's radius through every slice. The mask is drawn once.
class c3DPsfDvorakHourglassSpaceConstraint : public cConstraint {
public:
    c3DPsfDvorakHourglassSpaceConstraint(float dx, float dy, float dz, float numericalAperture,
                                         float refractiveIndex, float lambda, float factor,
                                         unsigned sizeX, unsigned sizeY, unsigned sizeZ, int flat);

    // Draws the mask; a second call is refused.
    void Setup() override;
    // Multiplies the image by the mask, drawing it first if need be.
    void Apply(cFloatImagePtr& image) override;

    cFloatImagePtr GetMask() const { return mMask; }

private:
    float mSpacing[3];
    float mNumericalAperture;
    float mRefractiveIndex;
    float mLambda;
    float mFactor;
    uint32_t mSize[3];
    int mFlat;
    cFloatImagePtr mMask;
};

} // namespace Ovidane
