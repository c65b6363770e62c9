#include "decon/c2DPSFPreview.h"

#include "decon/PreviewPanels.h"

namespace Ovidane {

c2DPSFPreview::c2DPSFPreview(cCountedPtr<cDeconLog> log) : cPreview(std::move(log)) {
    SetObjectName("c2DPSFPreview");
}

void c2DPSFPreview::Update(cFloatImagePtr& preview, cFloatImagePtr& psf) {
    Guard([&] { PreviewPanels::DrawPsfMiddle(preview, psf); });
}

} // namespace Ovidane
