#include "decon/c2DPSFPreviewWithFile.h"

#include "decon/PreviewPanels.h"

namespace Ovidane {

c2DPSFPreviewWithFile::c2DPSFPreviewWithFile(cCountedPtr<cDeconLog> log)
    : cPreview(std::move(log)) {
    SetObjectName("c2DPSFPreviewWithFile");
}

void c2DPSFPreviewWithFile::Update(cFloatImagePtr& preview, cFloatImagePtr& psf) {
    Guard([&] {
        PreviewPanels::DrawPsfMiddle(preview, psf);
        const cDeconParameter& p = mLog->GetParameters();
        PreviewPanels::WriteUpdateFile(preview, p.GetString(DEC_SPARAMS_PSF_PREVIEW_FILE),
                                       p.GetInt(DEC_IPARAMS_CURRENT_ITERATION), mWritten);
    });
}

} // namespace Ovidane
