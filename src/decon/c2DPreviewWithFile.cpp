#include "decon/c2DPreviewWithFile.h"

#include "decon/PreviewPanels.h"

namespace Ovidane {

c2DPreviewWithFile::c2DPreviewWithFile(cCountedPtr<cDeconLog> log) : cPreview(std::move(log)) {
    SetObjectName("c2DPreviewWithFile");
}

void c2DPreviewWithFile::Update(cFloatImagePtr& preview, cFloatImagePtr& image) {
    Guard([&] {
        PreviewPanels::Draw(*mLog, preview, image, 1.75f);
        PreviewPanels::WriteUpdateFile(
            preview, mLog->GetParameters().GetString(DEC_SPARAMS_PREVIEW_FILE),
            mLog->GetParameters().GetInt(DEC_IPARAMS_CURRENT_ITERATION), mWritten);
    });
}

} // namespace Ovidane
