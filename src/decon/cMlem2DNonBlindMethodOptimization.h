#pragma once
#include <cstdint>

#include "decon/cMlemNonBlindMethodOptimization.h"

namespace Ovidane {

// ML-EM for a single plane with a known PSF: each pass of the framework runs a fixed number
// of updates x ← x · ((g / (x ⊗ h)) ⋆ h), each carried on by the acceleration, and only then
// holds the PSF and the object at 1e-20 or above. With sub-pixel factors the box kernel bins
// and spreads within the plane; a stack deeper than one plane is refused there, since the
// kernel's transforms are those of a plane.
class cMlem2DNonBlindMethodOptimization : public cMlemNonBlindMethodOptimization {
public:
    explicit cMlem2DNonBlindMethodOptimization(uint32_t updates);

    void Initialize() override;
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;

    uint32_t GetUpdates() const { return mUpdates; }

private:
    uint32_t mUpdates;
    // The first floor may raise the PSF's smallest pixels; later ones change nothing.
    bool mPsfFloored = false;
};

using cMlem2DNonBlindMethodOptimizationPtr = cCountedPtr<cMlem2DNonBlindMethodOptimization>;

} // namespace Ovidane
