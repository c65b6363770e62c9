#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Takes the image's smallest pixel as its background and subtracts it, so that the image's
// minimum becomes 0.
class cMinimumIntensityBackgroundSubtractionConstraint : public cConstraint {
public:
    cMinimumIntensityBackgroundSubtractionConstraint();

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;
};

} // namespace Ovidane
