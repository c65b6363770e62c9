#pragma once
#include <cstdint>

#include "core/cDeconOperation.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The loop of a restoration. An algorithm decides what to do and wires the operations; the
// framework decides when: Load (from the algorithm's SetUp), then Prepare and Iterate (from
// its Run). Iterate ends with the save of the result.
class cDeconFramework : public cDeconOperation {
public:
    cDeconFramework() : cDeconOperation("cDeconFramework") {}
    ~cDeconFramework() override = default;

    // Reads the original image.
    virtual void Load() = 0;
    // First guesses and pre-processing.
    virtual void Prepare() = 0;
    // The passes, then the final save.
    virtual void Iterate() = 0;
    virtual cFloatImagePtr GetObjectImage() = 0;
    // Which subvolume of how many this run restores; shown in every status update.
    virtual void SetSubvolumeProgress(int16_t index, int16_t count) = 0;
    // Draw the current object or PSF into the caller's preview image, if a preview is set.
    virtual void UpdatePreview(cFloatImagePtr& preview) = 0;
    virtual void UpdatePsfPreview(cFloatImagePtr& preview) = 0;
};

using cDeconFrameworkPtr = cCountedPtr<cDeconFramework>;

} // namespace Ovidane
