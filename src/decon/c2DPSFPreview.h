#pragma once
#include "decon/cPreview.h"

namespace Ovidane {

// Shows the middle of the current PSF, its centre in the middle of the preview.
class c2DPSFPreview : public cPreview {
public:
    explicit c2DPSFPreview(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& psf) override;
};

} // namespace Ovidane
