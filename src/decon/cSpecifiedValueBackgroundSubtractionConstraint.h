#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Removes a known background level, the camera's dark current say: the level is
// subtracted and what falls below 0 becomes 0.
class cSpecifiedValueBackgroundSubtractionConstraint : public cConstraint {
public:
    explicit cSpecifiedValueBackgroundSubtractionConstraint(float value);

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;

    float GetValue() const { return mValue; }

private:
    float mValue;
};

} // namespace Ovidane
