#include "decon/cKeptBuffer.h"

#include <cstdint>
#include <new>

#include "image/cRegionSource.h"

namespace Ovidane {

cKeptBuffer::~cKeptBuffer() {
    Clear();
}

void cKeptBuffer::Resize(std::size_t count) {
    if (count == mSize)
        return;
    Clear();
    if (count == 0)
        return;
    if (count > SIZE_MAX / sizeof(float))
        throw std::bad_alloc();
    // The heap's regions, outside the pixel pools that a run may give back at its end.
    void* region = cRegionSource::Heap().Acquire(count * sizeof(float));
    if (!region)
        throw std::bad_alloc();
    mData = static_cast<float*>(region);
    mSize = count;
}

void cKeptBuffer::Clear() {
    if (mData)
        cRegionSource::Heap().Release(mData);
    mData = nullptr;
    mSize = 0;
}

} // namespace Ovidane
