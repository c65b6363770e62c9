#pragma once
#include "decon/cPreview.h"

namespace Ovidane {

// The panel preview with bright dividers that also leaves every state of the picture in a
// file: the preview file name, "_I" and the pass.
class c2DPreviewWithFile : public cPreview {
public:
    explicit c2DPreviewWithFile(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& image) override;

private:
    // Whether this object has written its first file; later files are numbered by the pass
    // that has just ended.
    bool mWritten = false;
};

} // namespace Ovidane
