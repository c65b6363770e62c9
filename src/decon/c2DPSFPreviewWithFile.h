#pragma once
#include "decon/cPreview.h"

namespace Ovidane {

// Shows the middle of the current PSF and leaves each state of it in a file: the PSF
// preview file name, "_I" and the pass.
class c2DPSFPreviewWithFile : public cPreview {
public:
    explicit c2DPSFPreviewWithFile(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& psf) override;

private:
    bool mWritten = false;
};

} // namespace Ovidane
