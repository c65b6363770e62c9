#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Turns a transmitted-light brightfield image around within the stack's grey range, so
// that dark structures become bright: p becomes (minimum + maximum) − p. Whatever would
// end up below the guard value 1e-20 is set to it, so the result is strictly positive.
class cTLBInversionConstraint : public cConstraint {
public:
    cTLBInversionConstraint(float minimum, float maximum);

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;

private:
    float mMinimum;
    float mMaximum;
};

} // namespace Ovidane
