#pragma once
#include <cstddef>
#include <cstdint>

#include "decon/cConstraint.h"

namespace Ovidane {

// A constraint that changes every pixel on its own, by a rule that may depend on the slice
// the pixel lies in. Besides whole images it corrects lines of pixels wherever they are
// (while they are copied, say), which saves a pass over an image.
class cPixelCorrection : public cConstraint {
public:
    using cConstraint::cConstraint;

    // The pixels as Apply leaves them when they lie in slice `slice` of its image: the same
    // floats, by the same operations in the same order.
    virtual void CorrectLine(float* pixels, std::size_t count, uint32_t slice) const = 0;
};

using cPixelCorrectionPtr = cCountedPtr<cPixelCorrection>;

} // namespace Ovidane
