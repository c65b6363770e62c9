#pragma once
#include "largevolume/cSubvolumeCalculator.h"

namespace Ovidane {

// Cuts by a memory budget: the padded subvolume of element-size pixels must fit the
// memory size. With a memory size of 0 the budget is worked out from the machine's memory
// the first time the cut is made, and kept.
class cDynamicSubvolumeCalculator : public cSubvolumeCalculator {
public:
    cDynamicSubvolumeCalculator() : cSubvolumeCalculator("cDynamicSubvolumeCalculator") {}

    int CalculateSubvolumes() override;
};

} // namespace Ovidane
