#pragma once
#include <cstddef>

namespace Ovidane {

// Floats the process keeps between runs, on pages of their own. Buffers of several
// megabytes start on a huge-page boundary and ask for huge pages, and nothing is written
// into a new buffer before its pixels are: a kept PSF and its transform are tens of
// megabytes, which as zeroed small pages cost a first run thousands of page faults.
class cKeptBuffer {
public:
    cKeptBuffer() = default;
    ~cKeptBuffer();
    cKeptBuffer(const cKeptBuffer&) = delete;
    cKeptBuffer& operator=(const cKeptBuffer&) = delete;

    // Room for `count` floats, of undefined values unless the size stays the same. Throws
    // std::bad_alloc when the memory is refused, and then holds nothing.
    void Resize(std::size_t count);
    // Gives the memory back.
    void Clear();

    float* Data() const { return mData; }
    std::size_t Size() const { return mSize; }

private:
    float* mData = nullptr;
    std::size_t mSize = 0;
};

} // namespace Ovidane
