#pragma once
#include <cstdint>

#include "decon/cConstraint.h"

namespace Ovidane {

// Space mask of a measured PSF: what lies outside the hourglass that the light cone of the
// objective draws round the focus is noise, and goes. The waist radius is the minimum
// radius in units of the lateral resolution 0.61·λ/NA; the sides open with the aperture
// angle. A confocal PSF gets a cylinder over the whole depth instead, one pixel wider than
// the waist.
//
// The mask exists from the constructor on, empty until Setup draws it, so that GetMask can
// hand it to the background subtraction of the same PSF before the framework runs Setup.
class c3DPsfHourglassSpaceConstraint : public cConstraint {
public:
    c3DPsfHourglassSpaceConstraint(float dx, float dy, float dz, float numericalAperture,
                                   float refractiveIndex, float lambda, float minimumRadius,
                                   unsigned sizeX, unsigned sizeY, unsigned sizeZ, bool confocal,
                                   bool skip);

    // Checks the optics, the minimum radius, the size and the spacing, in that order, and
    // draws the mask, again on each call.
    void Setup() override;
    // Multiplies the image by the mask, unless the object serves only as a mask maker.
    void Apply(cFloatImagePtr& image) override;

    cFloatImagePtr GetMask() const { return mMask; }

private:
    float mSpacing[3];
    float mNumericalAperture;
    float mRefractiveIndex;
    float mLambda;
    float mMinimumRadius;
    uint32_t mSize[3];
    bool mConfocal;
    bool mSkip;
    cFloatImagePtr mMask;
};

} // namespace Ovidane
