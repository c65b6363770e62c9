#pragma once
#include <iosfwd>

#include "decon/cKeptPsfTransform.h"
#include "decon/cOptimization.h"

namespace Ovidane {

// One pass of the maximum-likelihood expectation-maximisation iteration for a known PSF:
//
//   x ← x · ((g / (x ⊗ h)) ⋆ h)
//
// with g the data, h the PSF (sum 1, centre at pixel (0, 0, 0)), ⊗ the circular convolution
// and ⋆ the correlation. The acceleration then carries the update further, and every pixel
// is held at 1e-20 or above, so that a pixel that touched 0 can still grow again.
//
// The working images belong to the acceleration, which is compulsory. With sub-pixel
// factors n (xy) or m (z) above 1 the object lies on a grid n times finer than the data: the
// reblurred object is binned by an n × n box before it meets the data, only the pixels of
// the measured grid carry a ratio (the others get 1), and the ratio is spread back by the
// same box.
class cMlemNonBlindMethodOptimization : public cOptimization {
public:
    cMlemNonBlindMethodOptimization();

    void SetAcceleration(const cAccelerationPtr& acceleration) override {
        mAcceleration = acceleration;
    }
    cAccelerationPtr GetAcceleration() override { return mAcceleration; }
    // Makes the box kernel of the sub-pixel factors, when they ask for one.
    void Initialize() override;
    // Needs a transform instance of the images' size on the calling thread.
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;

    cFloatImagePtr GetKernel() const { return mKernel; }

protected:
    bool UsesSubPixels() const { return mSubPixelXY > 1 || mSubPixelZ > 1; }
    // The checks of Apply, with its messages; sizes the acceleration's images.
    void CheckInputs(const cFloatImagePtr& object, const cFloatImagePtr& original,
                     const cFloatImagePtr& psf);
    // One update, carried on by the acceleration, without the floor. With a `timing`
    // stream each step's seconds are written there.
    void Update(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf,
                std::ostream* timing);
    // The next update transforms the PSF again: its pixels have changed in place.
    void ForgetPsfTransform() { mPsfTransform = cKeptPsfTransform(); }

private:

    cAccelerationPtr mAcceleration;
    cFloatImagePtr mKernel;
    cKeptPsfTransform mPsfTransform;
};

using cMlemNonBlindMethodOptimizationPtr = cCountedPtr<cMlemNonBlindMethodOptimization>;

} // namespace Ovidane
