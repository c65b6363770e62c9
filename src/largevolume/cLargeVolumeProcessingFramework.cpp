#include "largevolume/cLargeVolumeProcessingFramework.h"

#include "largevolume/StackFileCheck.h"
#include "largevolume/cSlicesAsStored.h"

namespace Ovidane {

cLargeVolumeProcessingFramework::cLargeVolumeProcessingFramework(const std::string& fileName,
                                                                 uint32_t width, uint32_t height,
                                                                 uint32_t depth)
    : cOvdObject("cLargeVolumeProcessingFramework"), mWidth(width), mHeight(height), mDepth(depth) {
    if (!fileName.empty())
        SetInput(fileName);
}

cLargeVolumeProcessingFramework::~cLargeVolumeProcessingFramework() = default;

void cLargeVolumeProcessingFramework::SetInput(const std::string& name) {
    Guard([&] {
        if (mReader)
            mReader->Close();
        mReader = nullptr;
        mReader = new cUnmanagedRawFileReader(name, mWidth, mHeight, mDepth);
        mReader->SetPixelBytes(mInputPixelBytes);
        // A file that can't be opened is refused by Run, which checks the input first.
        mReader->Open();
    });
}

void cLargeVolumeProcessingFramework::SetInputPixelBytes(uint32_t bytes) {
    Guard([&] {
        if (mReader)
            mReader->SetPixelBytes(bytes);
        mInputPixelBytes = bytes;
    });
}

void cLargeVolumeProcessingFramework::SetOutput(const std::string& name) {
    Guard([&] {
        if (mWriter)
            mWriter->Close();
        mWriter = nullptr;
        mWriter = new cTypedSliceWriter(name);
    });
}

void cLargeVolumeProcessingFramework::AddAction(cProcessingAction* action) {
    Guard([&] { mActions.push_back(action); });
}

void cLargeVolumeProcessingFramework::AddAction(const cProcessingActionPtr& action) {
    Guard([&] {
        mHeldActions.push_back(action);
        mActions.push_back(action.Get());
    });
}

int cLargeVolumeProcessingFramework::Close() {
    return Guard([&] {
        mActions.clear();
        mHeldActions.clear();
        if (mReader)
            mReader->Close();
        if (mWriter)
            mWriter->Close();
        mReader = nullptr;
        mWriter = nullptr;
        return 0;
    });
}

bool cLargeVolumeProcessingFramework::InputHoldsStack() const {
    return mReader && mWidth > 0 && mHeight > 0 && mDepth > 0 &&
           FileHoldsStack(mReader->GetFileName(), mWidth, mHeight, mDepth, mInputPixelBytes);
}

int cLargeVolumeProcessingFramework::Run() {
    return Guard([&]() -> int {
        if (mActions.empty())
            return 0;
        // Both refusals come before anything is read, so no action ever sees a part of a
        // stack and no output file is left half written.
        if (!InputHoldsStack())
            return kNoInput;
        if (mWriter && !cTypedSliceWriter::IsKnownType(mOutputType))
            return kUnknownOutputType;

        const cImageDimensions plane{mWidth, mHeight, 1};
        const cFloatImagePtr slice(new cOvdImage<float>(plane, Contiguous3D, GetObjectName()));
        cSlicesAsStored stored(*mReader, plane, mDepth, mInputPixelBytes, GetObjectName());
        for (uint32_t z = 0; z < mDepth; ++z) {
            if (!stored.Read(z, slice))
                return kNoInput;
            // Each slice starts from the slice image, whatever an action put in its place
            // for the slice before.
            cFloatImagePtr image = slice;
            for (cProcessingAction* action : mActions)
                if (const int result = action->Process(image, z); result != 0)
                    return result;
            if (mWriter && !mWriter->Write(image, mOutputType))
                return kOutputFailed;
        }
        for (cProcessingAction* action : mActions)
            if (const int result = action->Finish(); result != 0)
                return result;

        mReader->Close();
        mReader = nullptr;
        if (mWriter) {
            const bool written = mWriter->Close();
            mWriter = nullptr;
            if (!written)
                return kOutputFailed;
        }
        return 0;
    });
}

} // namespace Ovidane
