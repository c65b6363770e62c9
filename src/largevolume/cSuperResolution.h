#pragma once
#include <cstdint>

#include "core/cImageDimensions.h"
#include "largevolume/cProcessingAction.h"

namespace Ovidane {

// Resamples each slice up by an integer factor s in x and y (bilinear), for a run that
// restores at a finer lateral sampling than the camera's. The z factor is kept for the
// log's sake; the slices themselves are never multiplied here.
class cSuperResolution : public cProcessingAction {
public:
    // xyFactor s, zFactor t and the size of the slices that will come (depth 1 in a
    // pass). With either factor 0 the action leaves slices as they are.
    cSuperResolution(uint32_t xyFactor, uint32_t zFactor, uint32_t width, uint32_t height,
                     uint32_t depth);

    int Process(cFloatImagePtr& image, uint32_t z) override;
    int Finish() override { return 0; }

    // Size of the slices this action hands on: s*width by s*height by 1.
    virtual cImageDimensions GetResultDimensions() const;

private:
    bool Resamples() const { return mXYFactor != 0 && mZFactor != 0; }

    uint32_t mXYFactor;
    uint32_t mZFactor;
    cImageDimensions mInputSize;
    cFloatImagePtr mResult; // s*W by s*H by 1
    cFloatImagePtr mWork;   // s*W by H by 1: the x pass
    cFloatImagePtr mExtra;  // s*W by s*H by 1: the y pass
};

} // namespace Ovidane
