#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Makes each slice of a PSF symmetric about the wrap-around origin: pixels at the same
// distance from the axis take their common mean.
class cRadialAverageConstraint : public cConstraint {
public:
    cRadialAverageConstraint();

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;
};

} // namespace Ovidane
