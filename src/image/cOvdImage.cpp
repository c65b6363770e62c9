#include "image/cOvdImage.h"

#include <atomic>
#include <utility>

#include "image/cMemoryManagerContainer.h"

namespace Ovidane {

namespace {
std::atomic<uint64_t> gLastFrozenNumber{0};
} // namespace

template <class T>
cOvdImage<T>::cOvdImage(const cImageDimensions& dimensions, const std::string& owner)
    : cOvdImage(dimensions, Contiguous2D, owner) {}

template <class T>
cOvdImage<T>::cOvdImage(const cImageDimensions& dimensions, ovdImageLayout layout,
                        const std::string& owner)
    : mOwnerName(owner), mDimensions(dimensions) {
    AllocateFromManager(layout);
}

template <class T> void cOvdImage<T>::AllocateFromManager(ovdImageLayout layout) {
    if (layout == Contiguous3D) {
        mElementsPerBlock = static_cast<uint32_t>(mDimensions.Voxels());
        mBlockCount = 1;
    } else {
        mElementsPerBlock = mDimensions.x * mDimensions.y;
        mBlockCount = mDimensions.z;
    }
    mLayout = layout;
    auto& container = cMemoryManagerContainer::Instance();
    container.Allocate(mElementsPerBlock, mBlockCount, mBlocks, mOwnerName);
    // The manager prefers one block for the whole stack when the heap allows; the image
    // then is Contiguous3D whatever was asked for.
    if (mBlocks.size() == 1) {
        mElementsPerBlock = static_cast<uint32_t>(mDimensions.Voxels());
        mBlockCount = 1;
        mLayout = Contiguous3D;
    }
    // A stack without slices gets no block at all.
    mFirstPixel = mBlocks.empty() ? nullptr : mBlocks.front()->start;
    container.ReportOwners();
    container.ReportBlockUse();
}

template <class T>
cOvdImage<T>::cOvdImage(T* pixels, const cImageDimensions& dimensions, ovdImageLayout layout,
                        const std::string& owner)
    : mOwnerName(owner), mLayout(layout), mDimensions(dimensions), mOwnsMemory(false) {
    if (!pixels)
        Fail("NULL Array", 2);
    mElementsPerBlock = static_cast<uint32_t>(dimensions.Voxels());
    mBlockCount = 1;
    WrapBlock(pixels, mElementsPerBlock);
    mFirstPixel = pixels;
}

template <class T>
cOvdImage<T>::cOvdImage(std::shared_ptr<const void> keeper, T* pixels,
                        const cImageDimensions& dimensions, const std::string& owner)
    : cOvdImage(pixels, dimensions, Contiguous3D, owner) {
    mKeeper = std::move(keeper);
}

template <class T>
cOvdImage<T>::cOvdImage(T** slices, uint32_t sizeX, uint32_t sizeY, uint32_t sizeZ,
                        ovdImageLayout layout, const std::string& owner)
    : mOwnerName(owner), mLayout(layout), mDimensions{sizeX, sizeY, sizeZ}, mOwnsMemory(false) {
    if (!slices)
        Fail("NULL Array", 2);
    mElementsPerBlock = sizeX * sizeY;
    mBlockCount = sizeZ;
    for (uint32_t z = 0; z < sizeZ; ++z) {
        if (!slices[z])
            Fail("NULL Array", 2);
        WrapBlock(slices[z], mElementsPerBlock);
    }
    mFirstPixel = mBlocks.empty() ? nullptr : mBlocks.front()->start;
}

template <class T> void cOvdImage<T>::WrapBlock(T* start, uint32_t elements) {
    mExternalBlock = new cMemoryBlock<T>(start, elements, nullptr);
    mBlocks.push_back(mExternalBlock);
}

template <class T> cOvdImage<T>::~cOvdImage() {
    // Blocks go back to the pool unlocked, last first; the pixels stay with the manager.
    while (!mBlocks.empty()) {
        mBlocks.back()->locked = false;
        mBlocks.pop_back();
    }
}

template <class T>
cOvdImage<T>* cOvdImage<T>::GetSubImage(uint32_t firstSlice, uint32_t lastSlice) const {
    return Guard([&] {
        if (mLayout != Contiguous3D)
            Fail("Cannot Get a SubImage of a non 3D Contiguous Image.", 2);
        const cImageDimensions size{mDimensions.x, mDimensions.y, lastSlice - firstSlice + 1};
        return new cOvdImage<T>(GetSlicePointer(firstSlice), size, Contiguous3D, mOwnerName);
    });
}

template <class T>
cOvdImage<T>* cOvdImage<T>::GetSubImageFirstAxis(uint32_t first, uint32_t last) const {
    return Guard([&] {
        const uint64_t plane = uint64_t{mDimensions.y} * mDimensions.z;
        if ((uint64_t{last} + 1) * plane > mDimensions.Voxels())
            Fail("SubImage is outside of Original Image.", 2);
        const uint32_t width = last - first + 1;
        if (mLayout == Contiguous3D)
            return new cOvdImage<T>(mFirstPixel + first * plane,
                                    cImageDimensions{width, mDimensions.y, mDimensions.z},
                                    Contiguous3D, mOwnerName);
        std::vector<T*> slices(mDimensions.z);
        for (uint32_t z = 0; z < mDimensions.z; ++z)
            slices[z] = mBlocks[z]->start + std::size_t{first} * mDimensions.y;
        return new cOvdImage<T>(slices.data(), width, mDimensions.y, mDimensions.z, Contiguous2D,
                                mOwnerName);
    });
}

template <class T> void cOvdImage<T>::Freeze() {
    if (mFrozenNumber == 0)
        mFrozenNumber = NewFrozenNumber();
}

template <class T> uint64_t cOvdImage<T>::NewFrozenNumber() {
    return ++gLastFrozenNumber;
}

template class cOvdImage<float>;
template class cOvdImage<uint16_t>;
template class cOvdImage<uint8_t>;

} // namespace Ovidane
