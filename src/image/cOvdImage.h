#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/cCountedPtr.h"
#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cMemoryBlock.h"

namespace Ovidane {

enum ovdImageLayout : uint32_t {
    Contiguous3D = 1, // one block of x*y*z elements
    Contiguous2D = 2, // one block of x*y elements per slice; slices need not be adjacent
};

// The pixel container. It performs no arithmetic and owns no memory: the pixels lie in
// blocks borrowed from the calling thread's memory manager, or in memory given from
// outside. Users never assume a layout; they ask for line or slice pointers, or look at
// GetLayout() to treat the image as one vector or as one vector per slice.
template <class T> class cOvdImage : public cOvdObject {
public:
    // Pixels from the manager, one block per slice asked for; see the layout rule below.
    cOvdImage(const cImageDimensions& dimensions, const std::string& owner);
    cOvdImage(const cImageDimensions& dimensions, ovdImageLayout layout, const std::string& owner);
    // Wrapping outside memory, which the image never frees.
    cOvdImage(T* pixels, const cImageDimensions& dimensions, ovdImageLayout layout,
              const std::string& owner);
    cOvdImage(T** slices, uint32_t sizeX, uint32_t sizeY, uint32_t sizeZ, ovdImageLayout layout,
              const std::string& owner);
    // Wrapping memory that `keeper` holds, in one block: the image keeps it alive.
    cOvdImage(std::shared_ptr<const void> keeper, T* pixels, const cImageDimensions& dimensions,
              const std::string& owner);
    ~cOvdImage() override;

    cOvdImage(const cOvdImage&) = delete;
    cOvdImage& operator=(const cOvdImage&) = delete;

    const cImageDimensions& GetDimensions() const { return mDimensions; }
    uint32_t GetSizeX() const { return mDimensions.x; }
    uint32_t GetSizeY() const { return mDimensions.y; }
    uint32_t GetSizeZ() const { return mDimensions.z; }
    uint64_t GetVoxelCount() const { return mDimensions.Voxels(); }
    ovdImageLayout GetLayout() const { return mLayout; }
    bool IsContiguous3D() const { return mLayout == Contiguous3D; }
    uint32_t GetElementsPerBlock() const { return mElementsPerBlock; }
    uint32_t GetBlockCount() const { return mBlockCount; }
    bool OwnsMemory() const { return mOwnsMemory; }
    const std::string& GetOwnerName() const { return mOwnerName; }
    bool HasSameSliceSize(const cOvdImage& other) const {
        return mDimensions.x == other.mDimensions.x && mDimensions.y == other.mDimensions.y;
    }

    bool IsRoiInside(const cImageBox& box) const {
        return box.x0 < mDimensions.x && box.x1 < mDimensions.x && box.y0 < mDimensions.y &&
               box.y1 < mDimensions.y && box.z0 < mDimensions.z && box.z1 < mDimensions.z;
    }

    T* GetPixelPointer(uint32_t x, uint32_t y, uint32_t z) const {
        CheckY(y);
        CheckX(x);
        return GetLineStart(y, z) + x;
    }
    T* GetLinePointer(uint32_t y, uint32_t z) const {
        CheckY(y);
        return GetLineStart(y, z);
    }
    T* GetSlicePointer(uint32_t z) const {
        if (mLayout == Contiguous3D)
            return mFirstPixel + std::size_t{mDimensions.x} * mDimensions.y * z;
        CheckZ(z);
        return mBlocks[z]->start;
    }

    // A holder that will never write the pixels again, nor let anyone else, may freeze the
    // image: it gets a number of its own in the process, by which a print of its pixels
    // (cPixelPrint) knows it again without reading it. 0 for an image not frozen.
    void Freeze();
    uint64_t GetFrozenNumber() const { return mFrozenNumber; }
    // Freezes the image under a number taken before: images over the same frozen pixels
    // share it, and a print taken of one knows the others.
    void FreezeAs(uint64_t number) { mFrozenNumber = number; }
    static uint64_t NewFrozenNumber();

    // Views; the caller owns the result and the source must outlive it.
    cOvdImage<T>* GetSubImage(uint32_t firstSlice, uint32_t lastSlice) const;
    cOvdImage<T>* GetSubImageFirstAxis(uint32_t first, uint32_t last) const;

private:
    void AllocateFromManager(ovdImageLayout layout);
    void WrapBlock(T* start, uint32_t elements);

    // Indices equal to the axis size are refused too: no caller may address one past
    // the end through these accessors.
    void CheckX(uint32_t x) const {
        if (x >= mDimensions.x)
            Fail("X index out of bounds", 2);
    }
    void CheckY(uint32_t y) const {
        if (y >= mDimensions.y)
            Fail("Y index out of bounds", 2);
    }
    void CheckZ(uint32_t z) const {
        if (z >= mBlockCount)
            Fail("Z index out of bounds", 2);
    }
    T* GetLineStart(uint32_t y, uint32_t z) const {
        if (mLayout == Contiguous3D)
            return mFirstPixel + (std::size_t{mDimensions.y} * z + y) * mDimensions.x;
        CheckZ(z);
        return mBlocks[z]->start + std::size_t{y} * mDimensions.x;
    }

    std::string mOwnerName;
    std::vector<cCountedPtr<cMemoryBlock<T>>> mBlocks;
    cCountedPtr<cMemoryBlock<T>> mExternalBlock;
    T* mFirstPixel = nullptr;
    uint32_t mElementsPerBlock = 0;
    uint32_t mBlockCount = 0;
    ovdImageLayout mLayout = Contiguous3D;
    cImageDimensions mDimensions;
    bool mOwnsMemory = true;
    uint64_t mFrozenNumber = 0;
    std::shared_ptr<const void> mKeeper;
};

extern template class cOvdImage<float>;
extern template class cOvdImage<uint16_t>;
extern template class cOvdImage<uint8_t>;

using cFloatImage = cOvdImage<float>;
using cFloatImagePtr = cCountedPtr<cOvdImage<float>>;

} // namespace Ovidane
