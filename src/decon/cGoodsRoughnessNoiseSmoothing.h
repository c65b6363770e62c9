#pragma once
#include "decon/cNoiseSmoothing.h"

namespace Ovidane {

// Good's roughness step after each pass: every interior pixel x moves towards
// β·√x·Σ√(neighbours), weighted by 1 / (n·β + 1) with n = 4 in the first and last plane and
// 6 between, which penalises an estimate whose square root is rough. β is the
// regularisation factor · 1e-4; a factor of 0 means no step.
//
// The step writes the smoothed estimate into a second image, which takes the estimate's
// place; the estimate's old image becomes the next step's target. That image is made once
// and kept, so a pass allocates nothing.
class cGoodsRoughnessNoiseSmoothing : public cNoiseSmoothing {
public:
    // A negative factor is ignored (β stays 0).
    explicit cGoodsRoughnessNoiseSmoothing(float factor);

    // Makes the second image ahead of the first pass.
    void Initialize(const cImageDimensions& size) override;
    // `iteration` plays no part: the step comes after every pass. `image` comes back as
    // another image of the same size.
    void Apply(cFloatImagePtr& image, uint32_t iteration) override;

    float GetBeta() const { return mBeta; }

private:
    void MakeTarget(const cImageDimensions& size);

    float mBeta = 0.0f;
    cFloatImagePtr mTarget;
};

} // namespace Ovidane
