#include "decon/c3DPreviewWithFile.h"

#include "decon/PreviewPanels.h"

namespace Ovidane {

c3DPreviewWithFile::c3DPreviewWithFile(cCountedPtr<cDeconLog> log) : cPreview(std::move(log)) {
    SetObjectName("c3DPreviewWithFile");
}

void c3DPreviewWithFile::Update(cFloatImagePtr& preview, cFloatImagePtr& image) {
    Guard([&] { PreviewPanels::Draw(*mLog, preview, image, 1.75f); });
}

} // namespace Ovidane
