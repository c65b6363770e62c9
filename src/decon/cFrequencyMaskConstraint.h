#pragma once
#include <cstdint>
#include <string>

#include "core/cImageDimensions.h"
#include "decon/cConstraint.h"

namespace Ovidane {

// Common ground of the two band limits of a PSF: the optics, the size of the mask and the
// mask itself, a 0/1 image in the frequency layout of the transforms (frequency origin at
// pixel (0, 0, 0), wrap-around order). Apply keeps of a PSF only the frequencies that the
// mask lets through; the subclasses differ in how Setup draws the mask.
class cFrequencyMaskConstraint : public cConstraint {
public:
    const cFloatImagePtr& GetMask() const { return mMask; }
    bool IsConfocal() const { return mConfocal; }
    bool IsObserved() const { return mObserve; }

protected:
    cFrequencyMaskConstraint(std::string objectName, bool confocal, bool observe);

    // Frequency steps 1/(N·d) of the three axes, the radius 2·NA/λ of the lateral passband
    // and the slope of the missing cone along the axial frequency, all in float as the
    // masks are drawn in float.
    struct cPassband {
        float fx, fy, fz;
        float radius;
        float coneSlope;
    };
    cPassband Passband() const;

    // Makes an empty mask of the constraint's size.
    void CreateMask();

    // The band limit proper, on a PSF of any size the calling thread has a transform for:
    // forward transform, both parts of the spectrum times the mask, inverse transform. A
    // confocal PSF is the square of a widefield one, so it is limited as its square root
    // and squared again. The mask is drawn first if Setup has not run.
    void ApplyMask(const cFloatImagePtr& image);

    float mSpacing[3] = {1.0f, 1.0f, 1.0f};
    float mNumericalAperture = 0.0f;
    float mRefractiveIndex = 0.0f;
    float mLambda = 0.0f;
    uint32_t mSize[3] = {1, 1, 1};
    bool mConfocal;
    // Kept with the object for those who ask; the band limit is the same either way.
    bool mObserve;
    cFloatImagePtr mMask;
};

} // namespace Ovidane
