#pragma once
#include "decon/cPixelCorrection.h"

namespace Ovidane {

// Removes a known background level, the camera's dark current say: the level is
// subtracted and what falls below 0 becomes 0.
class cSpecifiedValueBackgroundSubtractionConstraint : public cPixelCorrection {
public:
    explicit cSpecifiedValueBackgroundSubtractionConstraint(float value);

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;
    void CorrectLine(float* pixels, std::size_t count, uint32_t slice) const override;

    float GetValue() const { return mValue; }

private:
    float mValue;
};

} // namespace Ovidane
