#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Makes the energy of a PSF's slices fall away from its centre plane, slice 0, in both
// directions of wrap-around z: a slice that holds more than its neighbour nearer the centre
// is scaled down to that neighbour's sum. Slice 0 itself is never scaled.
class cAxialSumNormalizationConstraint : public cConstraint {
public:
    cAxialSumNormalizationConstraint();

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;
};

} // namespace Ovidane
