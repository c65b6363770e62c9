#include "largevolume/cSaveProcessResultAction.h"

namespace Ovidane {

cSaveProcessResultAction::cSaveProcessResultAction(const std::string& fileName, uint32_t outputType)
    : cProcessingAction("cSaveProcessResultAction"), mOutputType(outputType) {
    Guard([&] { mWriter = new cTypedSliceWriter(fileName); });
}

int cSaveProcessResultAction::Process(cFloatImagePtr& image, uint32_t /*z*/) {
    return Guard([&] {
        // A short write shows in Finish; the pass itself goes on.
        if (mWriter && cTypedSliceWriter::IsKnownType(mOutputType))
            mWriter->Write(image, mOutputType);
        return 0;
    });
}

int cSaveProcessResultAction::Finish() {
    return Guard([&] {
        if (!mWriter)
            return 0;
        const bool written = mWriter->Close();
        mWriter = nullptr;
        return written ? 0 : 5;
    });
}

} // namespace Ovidane
