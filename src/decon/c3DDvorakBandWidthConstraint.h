#pragma once
#include "decon/cFrequencyMaskConstraint.h"

namespace Ovidane {

// Band limit of a measured PSF for high apertures: the same cylinder of passed
// frequencies, of half height NA²/(2·λ), but the missing cone along the axial frequency
// is cleared only above an axial frequency set by the lateral extent of the stack, so the
// low axial frequencies that a finite field of view does carry survive.
//
// The constructor checks its arguments (n, λ, NA, NA ≤ n, sizes, spacings, in that order)
// and stops quietly at the first value out of range, keeping the start values of the
// fields after it. Such an object never draws a mask.
class c3DDvorakBandWidthConstraint : public cFrequencyMaskConstraint {
public:
    c3DDvorakBandWidthConstraint(float dx, float dy, float dz, float numericalAperture,
                                 float refractiveIndex, float lambda, unsigned sizeX,
                                 unsigned sizeY, unsigned sizeZ, bool confocal, bool observe);

    // Draws the mask once; nothing when it exists already.
    void Setup() override;
    // A null image is left alone.
    void Apply(cFloatImagePtr& image) override;

private:
    bool mArgumentsValid = false;
};

} // namespace Ovidane
