#pragma once
#include <cstdint>

#include "decon/cPreview.h"

namespace Ovidane {

// The panel preview without dividers that keeps, in a file per pass, the running maximum
// of every picture drawn during that pass: as the subvolumes of a pass come one after the
// other, the file of the pass gathers the brightest value each pixel ever showed.
class c2DPreviewWithMaxProjectionFile : public cPreview {
public:
    explicit c2DPreviewWithMaxProjectionFile(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& image) override;

private:
    bool mWritten = false;
    // The file's content as read back, merged with the preview and written again.
    cFloatImagePtr mAccumulated;
    uint32_t mLastIteration = 0;
};

} // namespace Ovidane
