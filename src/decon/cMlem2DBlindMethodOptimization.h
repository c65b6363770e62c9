#pragma once
#include <cstdint>

#include "decon/cOptimization.h"

namespace Ovidane {

// Blind ML-EM for a single plane: the PSF is estimated with the object. Each pass first
// improves the PSF with the object held still, then the object with the PSF held still:
//
//   h ← h · ((g / (x ⊗ h)) ⋆ x)    psfUpdates times, carried on by the PSF's acceleration B
//   x ← x · ((g / (x ⊗ h)) ⋆ h)    objectUpdates times, carried on by the object's A
//
// and then holds both at 1e-20 or above. A and B keep separate histories; the framework
// advances A alone. The partner held still is transformed once per loop, so an update
// costs two convolutions of which only the moving image's side is transformed anew.
class cMlem2DBlindMethodOptimization : public cOptimization {
public:
    cMlem2DBlindMethodOptimization(uint32_t objectUpdates, uint32_t psfUpdates);

    void SetAcceleration(const cAccelerationPtr& acceleration) override {
        mObjectAcceleration = acceleration;
    }
    void SetPsfAcceleration(const cAccelerationPtr& acceleration) {
        mPsfAcceleration = acceleration;
    }
    cAccelerationPtr GetAcceleration() override { return mObjectAcceleration; }
    cAccelerationPtr GetPsfAcceleration() const { return mPsfAcceleration; }
    void Initialize() override { SetObjectName("cMlem2DBlindMethodOptimization"); }
    // Needs a transform instance of the images' size on the calling thread.
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;
    // A copy of the estimate scaled to sum 1. The passes leave its sum at the data's (each
    // update restores that sum) and carry the object's scale in the PSF's place.
    void RetrievePsf(cFloatImagePtr& psf) override;

    uint32_t GetObjectUpdates() const { return mObjectUpdates; }
    uint32_t GetPsfUpdates() const { return mPsfUpdates; }

private:
    // `count` updates of `moving` against `still`, whose half spectrum is made first.
    void UpdateAgainst(cFloatImagePtr& moving, const cFloatImagePtr& still,
                       cFloatImagePtr& original, cAcceleration& acceleration, uint32_t count);

    cAccelerationPtr mObjectAcceleration;
    cAccelerationPtr mPsfAcceleration;
    uint32_t mObjectUpdates;
    uint32_t mPsfUpdates;
    cFloatImagePtr mStillSpectrum;
};

using cMlem2DBlindMethodOptimizationPtr = cCountedPtr<cMlem2DBlindMethodOptimization>;

} // namespace Ovidane
