#pragma once
#include "decon/cKeptPsfTransform.h"
#include "decon/cOptimization.h"

namespace Ovidane {

// One pass of Gold's ratio method: x ← x · g / (x ⊗ h), with negative results set to 1e-20.
// Unlike ML-EM there is no correlation with the PSF, so a pass costs one convolution; a
// pixel that is 0 stays 0. The work image W is made at the first pass and kept.
class cGoldsMethodOptimization : public cOptimization {
public:
    cGoldsMethodOptimization();

    // Stored only: the method takes no acceleration, and the framework finds none.
    void SetAcceleration(const cAccelerationPtr& acceleration) override {
        mAcceleration = acceleration;
    }
    cAccelerationPtr GetAcceleration() override { return mAcceleration; }
    void Initialize() override { SetObjectName("cGoldsMethodOptimization"); }
    // Needs a transform instance of the images' size on the calling thread.
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;

private:
    cAccelerationPtr mAcceleration;
    cKeptPsfTransform mPsfTransform;
};

using cGoldsMethodOptimizationPtr = cCountedPtr<cGoldsMethodOptimization>;

} // namespace Ovidane
