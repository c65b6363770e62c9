#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Ovidane {

// Root of the raster file classes: a file name and the stack's size. A raw stack file is
// nothing but its pixels, x fastest, then y, then z, in the machine's byte order, so
// these sizes and the element size are all that places a pixel in the file.
class cBaseFileIOOperation {
public:
    explicit cBaseFileIOOperation(std::string fileName);
    virtual ~cBaseFileIOOperation();

    std::string GetFileName() const { return mFileName; }
    bool SetFileName(const std::string& fileName);
    bool SetHeight(uint32_t height);
    bool SetWidth(uint32_t width);
    bool SetDepth(uint32_t depth);
    uint32_t GetHeight() const { return mHeight; }
    uint32_t GetWidth() const { return mWidth; }
    uint32_t GetDepth() const { return mDepth; }

    // The text "error: <file> : <system's text>\n" of the latest short read or write,
    // empty while there was none. It is kept here and goes nowhere else: the operations
    // answer as they always do, and a caller that cares looks here.
    const std::string& GetLastError() const { return mLastError; }

protected:
    // Byte offset of pixel (x, y, z) for elements of `elementBytes`, in 64 bits.
    uint64_t ByteOffset(uint32_t x, uint32_t y, uint32_t z, std::size_t elementBytes) const {
        return ((uint64_t{z} * mHeight + y) * mWidth + x) * elementBytes;
    }
    void NoteShortTransfer(const std::string& systemText);
    // A buffer of at least `bytes` for one slice in the file's pixel type: grown when a
    // larger slice comes, kept for the next ones, let go by ReleaseSliceBuffer.
    unsigned char* SliceBuffer(std::size_t bytes);
    void ReleaseSliceBuffer();

private:
    std::string mFileName;
    uint32_t mHeight = 0;
    uint32_t mWidth = 0;
    uint32_t mDepth = 0;
    std::string mLastError;
    std::unique_ptr<unsigned char[]> mSliceBuffer;
    std::size_t mSliceBufferBytes = 0;
};

} // namespace Ovidane
