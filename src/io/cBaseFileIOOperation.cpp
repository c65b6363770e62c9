#include "io/cBaseFileIOOperation.h"

#include <utility>

namespace Ovidane {

cBaseFileIOOperation::cBaseFileIOOperation(std::string fileName) : mFileName(std::move(fileName)) {}

cBaseFileIOOperation::~cBaseFileIOOperation() = default;

bool cBaseFileIOOperation::SetFileName(const std::string& fileName) {
    mFileName = fileName;
    return true;
}

bool cBaseFileIOOperation::SetHeight(uint32_t height) {
    mHeight = height;
    return true;
}

bool cBaseFileIOOperation::SetWidth(uint32_t width) {
    mWidth = width;
    return true;
}

bool cBaseFileIOOperation::SetDepth(uint32_t depth) {
    mDepth = depth;
    return true;
}

void cBaseFileIOOperation::NoteShortTransfer(const std::string& systemText) {
    mLastError = "error: " + mFileName + " : " + systemText + "\n";
}

unsigned char* cBaseFileIOOperation::SliceBuffer(std::size_t bytes) {
    if (bytes > mSliceBufferBytes) {
        mSliceBuffer.reset();
        mSliceBuffer = std::make_unique_for_overwrite<unsigned char[]>(bytes);
        mSliceBufferBytes = bytes;
    }
    return mSliceBuffer.get();
}

void cBaseFileIOOperation::ReleaseSliceBuffer() {
    mSliceBuffer.reset();
    mSliceBufferBytes = 0;
}

} // namespace Ovidane
