#pragma once
#include <cstdint>

#include "decon/cAcceleration.h"

namespace Ovidane {

// Leaves every update as the plain ML-EM step: it only holds the working image in which the
// optimization forms the reblurred estimate and then the factor, and the optimization
// multiplies in place. For an estimate that must not be carried beyond its plain steps,
// such as a PSF estimated blind: extrapolated, it runs on to a single bright pixel.
class cNoAcceleration : public cAcceleration {
public:
    cNoAcceleration();

    void Apply(int32_t iteration) override { mIteration = iteration; }
    int32_t GetCurrentIteration() const override { return mIteration; }
    cFloatImagePtr GetReblurredImage() override { return GetMultiplicationFactor(); }
    cFloatImagePtr GetMultiplicationFactor() override;
    cFloatImagePtr GetNewImageEstimate() override { return cFloatImagePtr(); }
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;

private:
    int32_t mIteration = 0;
    cFloatImagePtr mFactor;
};

} // namespace Ovidane
