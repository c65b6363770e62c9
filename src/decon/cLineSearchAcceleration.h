#pragma once
#include <cstdint>

#include "decon/cAcceleration.h"

namespace Ovidane {

// Goes along the direction of the plain ML-EM update d = E − x as far as the Poisson
// log-likelihood of the data keeps rising: x ← x + t·d. The plain update (t = 1) never
// lowers the likelihood, so the search starts there and doubles t only while the
// likelihood improves. Where d would drive a pixel of x to 0, t stops at that point,
// tmax = −1 / min(d/x), and tmax itself is taken only if it still improves the likelihood.
//
// The likelihood of a step needs no transform of its own: the reblurred change
// C = (E ⊗ h) − R is formed once and every tried step is a sum over R + t·C. Only the pixels
// inside the guard bands count, since the bands hold interpolated data, not measured ones.
//
// Working images: R (reblurred estimate) and E (new estimate), which the optimization fills,
// and A, D, C, with a two-plane W for single-plane stacks. All are made once, at the first
// demand, and kept from pass to pass.
class cLineSearchAcceleration : public cAcceleration {
public:
    cLineSearchAcceleration();

    void Apply(int32_t iteration) override { mIteration = iteration; }
    int32_t GetCurrentIteration() const override { return mIteration; }

    cFloatImagePtr GetReblurredImage() override;
    // The factor data / reblurred is formed in E itself: E = x · factor follows in place.
    cFloatImagePtr GetMultiplicationFactor() override { return GetNewImageEstimate(); }
    cFloatImagePtr GetNewImageEstimate() override;

    // On entry R holds x ⊗ h and E the plain update of x; `object` is x.
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;

    // Pixels of the guard bands: x1 at the start and x2 at the end of x, and so on.
    void SetGuardBands(uint32_t x1, uint32_t x2, uint32_t y1, uint32_t y2, uint32_t z1,
                       uint32_t z2);

    // The step of the last Apply.
    float GetLastStep() const { return mLastStep; }

private:
    cFloatImagePtr MakeImage(cFloatImagePtr& image, const cImageDimensions& size,
                             const char* operation);

    int32_t mIteration = 0;
    uint32_t mGuard[6] = {0, 0, 0, 0, 0, 0};
    cFloatImagePtr mReblurred;
    cFloatImagePtr mEstimate;
    cFloatImagePtr mWorkA;
    cFloatImagePtr mDirection;
    cFloatImagePtr mChange;
    cFloatImagePtr mTwoPlanes;
    float mLastStep = 1.0f;
};

} // namespace Ovidane
