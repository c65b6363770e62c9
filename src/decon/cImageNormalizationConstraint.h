#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Clears negative pixels and scales the image to a given sum; with a target of 1 this is
// what makes a PSF a PSF.
class cImageNormalizationConstraint : public cConstraint {
public:
    // A target that isn't positive is not taken; the sum stays at 1.
    explicit cImageNormalizationConstraint(float target);

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;

    float GetTarget() const { return mTarget; }

private:
    float mTarget = 1.0f;
};

} // namespace Ovidane
