#include "decon/c3DPreview.h"

#include "decon/PreviewPanels.h"

namespace Ovidane {

c3DPreview::c3DPreview(cCountedPtr<cDeconLog> log) : cPreview(std::move(log)) {
    SetObjectName("c3DPreview");
}

void c3DPreview::Update(cFloatImagePtr& preview, cFloatImagePtr& image) {
    Guard([&] { PreviewPanels::Draw(*mLog, preview, image, 1.0f); });
}

} // namespace Ovidane
