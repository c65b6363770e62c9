#pragma once
#include "core/cDeconOperation.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Something known about an image, forced upon it: a band limit, a mask, non-negativity, a
// fixed sum. The framework holds constraints in ordered lists and applies them between the
// steps of a restoration.
class cConstraint : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cConstraint() override = default;

    // Prepares what Apply needs (a mask, say). The framework calls it once, before the first
    // Apply; a constraint with nothing to prepare leaves it empty.
    virtual void Setup() = 0;

    // Changes the image in place, or replaces the pointer by a new image.
    virtual void Apply(cFloatImagePtr& image) = 0;
};

using cConstraintPtr = cCountedPtr<cConstraint>;

} // namespace Ovidane
