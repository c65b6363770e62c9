#pragma once
#include "decon/cPixelCorrection.h"

namespace Ovidane {

// Turns a transmitted-light brightfield image around within the stack's grey range, so
// that dark structures become bright: p becomes (minimum + maximum) − p. Whatever would
// end up below the guard value 1e-20 is set to it, so the result is strictly positive.
class cTLBInversionConstraint : public cPixelCorrection {
public:
    cTLBInversionConstraint(float minimum, float maximum);

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;
    void CorrectLine(float* pixels, std::size_t count, uint32_t slice) const override;

private:
    float mMinimum;
    float mMaximum;
};

} // namespace Ovidane
