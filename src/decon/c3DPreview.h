#pragma once
#include "decon/cPreview.h"

namespace Ovidane {

// The panel preview with dividers at the image's maximum.
class c3DPreview : public cPreview {
public:
    explicit c3DPreview(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& image) override;
};

} // namespace Ovidane
