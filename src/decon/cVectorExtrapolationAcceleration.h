#pragma once
#include <cstdint>

#include "decon/cAcceleration.h"

namespace Ovidane {

// Extrapolates the object multiplicatively from the last two iterates: with x the plain
// update of this pass and y the plain update of the last one, x ← x · (x / y)^α. α compares
// this pass's log-gradient h = x · ln(M) (M the multiplication factor) with the last one,
// α = Σ h·h' / Σ h'·h', held in 0 to 1, so the step grows where the passes keep going the
// same way and vanishes where they turn. The first pass has no history and is the plain
// update. No transform is needed.
//
// Working images: M, which the optimization fills, the history H (last log-gradient) and
// P (last plain update), and A and C, which hold the history of the pass before. All are
// made once and kept; history and work images change roles by exchanging pointers, never
// by copying.
class cVectorExtrapolationAcceleration : public cAcceleration {
public:
    cVectorExtrapolationAcceleration();

    void Apply(int32_t iteration) override { mIteration = iteration; }
    int32_t GetCurrentIteration() const override { return mIteration; }

    // The reblurred estimate is formed in M and divided into the data there.
    cFloatImagePtr GetReblurredImage() override { return GetMultiplicationFactor(); }
    cFloatImagePtr GetMultiplicationFactor() override;
    // Empty: the optimization multiplies the object in place.
    cFloatImagePtr GetNewImageEstimate() override { return cFloatImagePtr(); }

    // On entry M holds this pass's factor and `object` the estimate x before the pass; only
    // `object` is used of the three. The plain update, the extrapolation and the floor are
    // two walks over the images.
    bool MakesPlainUpdate() const override { return true; }
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;

    // α of the last Apply.
    float GetLastAlpha() const { return mLastAlpha; }

private:
    cFloatImagePtr MakeImage(cFloatImagePtr& image, const cImageDimensions& size);

    int32_t mIteration = 0;
    cFloatImagePtr mFactor;
    cFloatImagePtr mGradient;     // H
    cFloatImagePtr mLastEstimate; // P
    cFloatImagePtr mWorkA;
    cFloatImagePtr mWorkC;
    float mLastAlpha = 0.0f;
};

} // namespace Ovidane
