#pragma once
#include <cstdint>

#include "core/cDeconOperation.h"
#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Holds back the noise that an iterative restoration amplifies.
class cNoiseSmoothing : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cNoiseSmoothing() override = default;

    // Prepares for images of `size` (a kernel and its transform, say); called once by the
    // algorithm before the run.
    virtual void Initialize(const cImageDimensions& size) = 0;
    // Smooths `image`, in place or by handing back another image of the same size and
    // layout (the caller holds no other pointer to it). `iteration` is the number of the pass just done, counted
    // from 1, so that a smoothing can act on every n-th pass only.
    virtual void Apply(cFloatImagePtr& image, uint32_t iteration) = 0;
};

using cNoiseSmoothingPtr = cCountedPtr<cNoiseSmoothing>;

} // namespace Ovidane
