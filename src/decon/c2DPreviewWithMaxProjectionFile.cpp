#include "decon/c2DPreviewWithMaxProjectionFile.h"

#include "decon/PreviewFile.h"
#include "decon/PreviewPanels.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

c2DPreviewWithMaxProjectionFile::c2DPreviewWithMaxProjectionFile(cCountedPtr<cDeconLog> log)
    : cPreview(std::move(log)) {
    SetObjectName("c2DPreviewWithMaxProjectionFile");
}

void c2DPreviewWithMaxProjectionFile::Update(cFloatImagePtr& preview, cFloatImagePtr& image) {
    Guard([&] {
        PreviewPanels::Draw(*mLog, preview, image, 0.0f);

        if (mAccumulated.IsNull())
            mAccumulated =
                cFloatImagePtr(new cOvdImage<float>(preview->GetDimensions(), mObjectName));
        const cDeconParameter& p = mLog->GetParameters();
        const std::string& base = p.GetString(DEC_SPARAMS_PREVIEW_FILE);
        const uint32_t iteration = static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_CURRENT_ITERATION));

        if (!mWritten) {
            // The first picture of this object starts the file of its pass.
            (void)WritePreviewFile(preview, PreviewPanels::UpdateFileName(base, iteration, false));
            mWritten = true;
        } else if (iteration > mLastIteration) {
            // A later pass: merge with what that pass's file holds so far, or start from 0
            // when nothing is there yet.
            const std::string name = PreviewPanels::UpdateFileName(base, iteration, true);
            cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
            if (ReadPreviewFile(mAccumulated, name) == -1)
                math->SetImageToConstant(mAccumulated, 0.0f);
            math->MaximumImage(preview, mAccumulated, mAccumulated);
            (void)WritePreviewFile(mAccumulated, name);
        }
        mLastIteration = iteration;
    });
}

} // namespace Ovidane
