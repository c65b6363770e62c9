#pragma once
#include <cstdint>

#include "largevolume/cProcessingAction.h"

namespace Ovidane {

// Turns transmitted-light data around, so that dark structures become bright and back:
// each pixel p becomes maximum + minimum - p, the stack's range mapped onto itself, and
// whatever falls to 0 or below is raised to the system's small number 1e-20, since the
// restoration that follows wants strictly positive data.
class cTLBInversion : public cProcessingAction {
public:
    // The maximum and the minimum of the whole stack.
    cTLBInversion(float maximum, float minimum);

    int Process(cFloatImagePtr& image, uint32_t z) override;
    int Finish() override { return 0; }

private:
    float mMaximum;
    float mMinimum;
};

} // namespace Ovidane
