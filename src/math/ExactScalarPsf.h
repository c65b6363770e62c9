#pragma once
// A widefield PSF from the scalar diffraction integral with the exact defocus phase: the
// pupil's rays keep their true angle, where a paraxial model lets the phase grow with the
// square of the pupil radius and so misstates the axial extent at high aperture (at NA 1.4
// in oil the paraxial integral gives 0.71 um, the exact one 0.51 um).
//
//   h(r, z) = ∫₀¹ J0(k·NA·r·ρ) · exp(i·(k·z·cᵢ(ρ) + W(ρ))) · ρ dρ,   I = |h|²
//   cᵢ = √(nᵢ² − NA²ρ²),  cₛ = √(nₛ² − NA²ρ²),  k = 2π/λ
//   W = k·d·(cₛ − cᵢ) + 2π·SA·ρ⁴, less its least-squares piston and defocus (a + b·k·cᵢ)
//
// z is the focus's travel in the immersion medium of index nᵢ, d the depth of the source
// below the coverslip in a sample of index nₛ (the mismatch aberration of Gibson and Lanni
// with the coverslip as designed), SA the spherical-aberration term of the specified model.
// Removing W's defocus keeps the brightest plane at focus as far as the aberration allows,
// as the specified model balances its own. Rays beyond the sample's critical angle carry no
// light. The pupil is filled evenly in ρ.
#include "image/cOvdImage.h"

namespace Ovidane {

struct cExactPsfOptics {
    float numericalAperture = 1.4f;
    float immersionIndex = 1.515f;
    float sampleIndex = 1.515f;
    float wavelength = 0.52f; // micrometres; 3.0 or more is read as nanometres
    float depth = 0.0f;       // micrometres below the coverslip
    float sphericalAberration = 0.0f;
};

// Fills `psf` in wrap-around order (focus at pixel (0,0,0)) at spacing (x, y, z) in
// micrometres, scaled to sum 1. Each plane is one radial profile, integrated by
// Gauss–Legendre quadrature over ρ with a table of J0 shared by all planes, then
// interpolated onto a quadrant of the plane and mirrored; without aberration only half of
// the planes are integrated.
void GenerateExactScalarPsf(const cFloatImagePtr& psf, const float spacing[3],
                            const cExactPsfOptics& optics);

} // namespace Ovidane
