#include "decon/c2DPreview.h"

#include "decon/PreviewPanels.h"

namespace Ovidane {

c2DPreview::c2DPreview(cCountedPtr<cDeconLog> log) : cPreview(std::move(log)) {
    SetObjectName("c2DPreview");
}

void c2DPreview::Update(cFloatImagePtr& preview, cFloatImagePtr& image) {
    Guard([&] { PreviewPanels::Draw(*mLog, preview, image, 1.75f); });
}

} // namespace Ovidane
