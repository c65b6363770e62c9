#pragma once
#include "largevolume/cSubvolumeCalculator.h"

namespace Ovidane {

// Cuts by fixed size limits, the same on every machine: at most 300 pixels in x and y and
// at most 100 slices in z per padded subvolume, each rounded down to a fast size.
class cStaticSubvolumeCalculator : public cSubvolumeCalculator {
public:
    cStaticSubvolumeCalculator() : cSubvolumeCalculator("cStaticSubvolumeCalculator") {}

    int CalculateSubvolumes() override;
};

} // namespace Ovidane
