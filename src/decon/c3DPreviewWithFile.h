#pragma once
#include "decon/cPreview.h"

namespace Ovidane {

// The panel preview with dividers brighter than any data (1.75 times the image's maximum),
// so that they stand out in any display scaling.
class c3DPreviewWithFile : public cPreview {
public:
    explicit c3DPreviewWithFile(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& image) override;

private:
    // Kept for symmetry with the other file-backed previews; this one draws the panels only.
    bool mWritten = false;
};

} // namespace Ovidane
