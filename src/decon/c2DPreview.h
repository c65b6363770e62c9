#pragma once
#include "decon/cPreview.h"

namespace Ovidane {

// The panel preview with dividers brighter than any data (1.75 times the image's maximum).
class c2DPreview : public cPreview {
public:
    explicit c2DPreview(cCountedPtr<cDeconLog> log);

    void Setup() override {}
    void Update(cFloatImagePtr& preview, cFloatImagePtr& image) override;
};

} // namespace Ovidane
