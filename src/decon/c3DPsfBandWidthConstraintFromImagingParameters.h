#pragma once
#include "decon/cFrequencyMaskConstraint.h"

namespace Ovidane {

// Band limit of a measured PSF drawn from the optics alone: the frequencies a widefield
// objective passes fill a cylinder about the axial frequency axis, of radius 2·NA/λ and
// half height NA²/(2·λ·n), with the double cone of the missing axial frequencies taken
// out. The zero frequency always stays, so the PSF keeps its sum.
class c3DPsfBandWidthConstraintFromImagingParameters : public cFrequencyMaskConstraint {
public:
    c3DPsfBandWidthConstraintFromImagingParameters(float dx, float dy, float dz,
                                                   float numericalAperture, float refractiveIndex,
                                                   float lambda, unsigned sizeX, unsigned sizeY,
                                                   unsigned sizeZ, bool confocal, bool observe);

    // Draws the mask once. Quietly does nothing when an optical value, a size or a spacing
    // is out of range, or when the mask exists already.
    void Setup() override;
    void Apply(cFloatImagePtr& image) override;
};

} // namespace Ovidane
