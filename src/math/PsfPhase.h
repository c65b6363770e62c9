#pragma once
// The pupil phase of one plane of the theoretical PSF. Both image math back ends fill
// their phase tables here, so the two can only differ in the one place they are meant
// to: whether the focus is shifted to balance the spherical aberration.
#include <cmath>
#include <cstdint>

namespace Ovidane::PsfPhase {

// 2π as the PSF model takes it, in single precision.
inline constexpr float kTwoPi = 6.2831854820251465f;

// Fills cosine[j] and sine[j] for the pupil samples j < count at spatial frequency
// j·dRho, for a plane at defocus z. u is the frequency relative to the pupil edge
// NA/λ; outside the pupil (u > 1) both are 0. The phase is
//   φ = A·(z − s·B)·u² + 2π·SA·u⁴,  reduced modulo 2π,
// where A is the axial phase factor, s the sign of SA and
//   B = ln(1 + |SA|)·(1.5·2π) / A
// the defocus that best balances the u⁴ term. With balanceFocus false B is left out and
// the focus stays where the optics put it.
inline void FillPupilPhase(float z, float dRho, float numericalAperture, float lambda,
                           float sphericalAberration, float axialPhaseFactor, bool balanceFocus,
                           uint32_t count, float* cosine, float* sine) {
    const float pupilEdge = numericalAperture / lambda;
    float defocus = z;
    if (balanceFocus) {
        const float sign = sphericalAberration >= 0.0f ? 1.0f : -1.0f;
        const float balance =
            (std::log(1.0f + std::fabs(sphericalAberration)) * (1.5f * kTwoPi)) / axialPhaseFactor;
        defocus = z - sign * balance;
    }
    const float quadratic = axialPhaseFactor * defocus;
    const float quartic = kTwoPi * sphericalAberration;
    for (uint32_t j = 0; j < count; ++j) {
        // The ratio is taken in double: near the pupil edge a single-precision quotient
        // can fall on either side of 1 and switch a sample on or off.
        const double ratio =
            static_cast<double>(static_cast<float>(j) * dRho) / static_cast<double>(pupilEdge);
        if (!(ratio <= 1.0)) { // outside the pupil, or not a number
            cosine[j] = 0.0f;
            sine[j] = 0.0f;
            continue;
        }
        const float u = static_cast<float>(ratio);
        const float u2 = u * u;
        const float phase = std::fmod(quadratic * u2 + quartic * (u2 * u2), kTwoPi);
        cosine[j] = std::cos(phase);
        sine[j] = std::sin(phase);
    }
}

} // namespace Ovidane::PsfPhase
