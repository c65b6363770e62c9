#pragma once
#include <cstdint>

#include "image/cOvdImage.h"

namespace Ovidane {

// The transform of the last PSF the inverse filter used (cFFT::KeepKernel), kept for the
// next run whose PSF has the same pixels: warm runs on stacks of one kind, and the
// subvolumes of a cut, filter with one PSF, and its transform is a third of a filter's
// transforms. A PSF is recognised by its pixels, compared with a kept copy bit for bit, so
// whatever made it, the kernel is the one the filter would make. Kept only when the copy and
// the kernel fit what the run's set-up allows (KeepAtMost); the process holds at most one.
class cKeptWienerKernel {
public:
    // The kept kernel of `psf`: the one kept when psf's pixels are those it was made from,
    // else made now and kept. Null when the two don't fit the allowance: the caller filters
    // without a kept kernel. The image is valid until the next call of either function,
    // which only the one run in progress makes.
    static cFloatImagePtr For(const cFloatImagePtr& psf);
    // From now on keeps a PSF and its kernel of at most `bytes` together (0: none), and lets
    // go of larger ones.
    static void KeepAtMost(uint64_t bytes);
};

} // namespace Ovidane
