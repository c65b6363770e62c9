#include "largevolume/cBlendingBand.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "core/cException.h"
#include "image/cRegionSource.h"
#include "largevolume/WeightedTile.h"

namespace Ovidane {

namespace {

// The band's pixels are kept from one cut to the next, which mostly has the same size, but
// outside the memory manager: its pool keeps a region of every size it has served, and the
// bands of cuts of different sizes would pile up there. One band is kept at most, and given
// back before a band of another size is taken.
struct cKeptBand {
    cRegionSource* source = nullptr;
    void* pixels = nullptr;
    std::size_t bytes = 0;
};
std::mutex gKeptLock;
cKeptBand gKept;

void Discard(cKeptBand& band) {
    if (band.pixels)
        band.source->Release(band.pixels);
    band = {};
}

cKeptBand TakeBand(std::size_t bytes) {
    cKeptBand band;
    {
        const std::lock_guard<std::mutex> lock(gKeptLock);
        std::swap(band, gKept);
    }
    if (band.pixels && band.bytes == bytes && band.source == &cRegionSource::Current())
        return band;
    Discard(band);
    band.source = &cRegionSource::Current();
    band.pixels = band.source->Acquire(bytes);
    band.bytes = bytes;
    if (!band.pixels)
        throw cException("cBlendingBand", "Unable to allocate the band", OVD_ERR_MEMORY);
    return band;
}

void KeepBand(cKeptBand band) {
    {
        const std::lock_guard<std::mutex> lock(gKeptLock);
        std::swap(band, gKept);
    }
    Discard(band);
}

} // namespace

uint64_t cBlendingBand::BandBytes(const cLayout& layout) {
    return uint64_t{layout.stack.x} * layout.size.y * layout.stack.z * sizeof(float);
}

uint32_t cBlendingBand::LastInside(uint32_t stack, uint32_t count, uint32_t size,
                                   uint32_t overlap) {
    if (count <= 1 || size <= overlap)
        return 0;
    return std::min(count - 1, (stack - 1) / (size - overlap));
}

cBlendingBand::cBlendingBand(const cLayout& layout,
                             const cCountedPtr<cUnmanagedRawFileWriter>& writer,
                             const cCountedPtr<cStackNonNegativity>& look)
    : cOvdObject("cBlendingBand"), mLayout(layout), mWriter(writer), mLook(look) {
    const cImageDimensions& s = layout.stack;
    // The next row of tiles adds to the band's last `overlap` rows, which must lie below the
    // rows it writes: two rows of tiles share a pixel at most.
    const bool valid = s.Voxels() > 0 && layout.counts.x > 0 && layout.counts.y > 0 &&
                       layout.size.x > 0 && layout.size.y > 0 && !mWriter.IsNull() &&
                       (layout.counts.y == 1 || layout.size.y >= 2 * layout.overlap);
    if (!valid)
        Fail("Invalid Dimensions in cBlendingBand", OVD_ERR_PARAMETER);
    mLastX = LastInside(s.x, layout.counts.x, layout.size.x, layout.overlap);
    mLastY = LastInside(s.y, layout.counts.y, layout.size.y, layout.overlap);
    // One tile high even where the stack is lower: the overlap carried over to the next row
    // of tiles lies within the tile.
    const cImageDimensions band{s.x, layout.size.y, s.z};
    cKeptBand memory = TakeBand(band.Voxels() * sizeof(float));
    mPixels = memory.pixels;
    mSource = memory.source;
    mBytes = memory.bytes;
    try {
        mBand = new cFloatImage(static_cast<float*>(mPixels), band, Contiguous3D, GetObjectName());
    } catch (...) {
        KeepBand(memory);
        throw;
    }
}

void cBlendingBand::KeepAtMost(uint64_t bytes) {
    cKeptBand band;
    {
        const std::lock_guard<std::mutex> lock(gKeptLock);
        if (gKept.bytes <= bytes)
            return;
        std::swap(band, gKept);
    }
    Discard(band);
}

cBlendingBand::~cBlendingBand() {
    mBand = cFloatImagePtr();
    KeepBand({mSource, mPixels, mBytes});
}

bool cBlendingBand::Add(const cImageDimensions& index, const cFloatImage& restored,
                        const cImageDimensions& origin, const cFloatImage& mask) {
    return Guard([&] {
        const cLayout& l = mLayout;
        if (uint64_t{index.y} * l.counts.x + index.x != mNext || index.x >= l.counts.x ||
            IsComplete())
            Fail("Tile out of turn in cBlendingBand::Add", OVD_ERR_PARAMETER);
        ++mNext;
        if (index.x <= mLastX && index.y <= mLastY) {
            const uint32_t x0 = (l.size.x - l.overlap) * index.x;
            const uint32_t y0 = (l.size.y - l.overlap) * index.y;
            const uint32_t w = std::min(l.size.x, l.stack.x - x0);
            const uint32_t h = std::min(l.size.y, l.stack.y - y0);
            // Rows in the band count from the top of this row of tiles; the first `overlap`
            // hold what the row above added there.
            if (!AddWeightedTile(restored, origin, mask, *mBand, w, h, x0, 0,
                                 index.x > 0 ? x0 + l.overlap : x0, index.y > 0 ? l.overlap : 0))
                return false;
        }
        if (index.x + 1 == l.counts.x && index.y <= mLastY)
            Finish(index.y);
        return true;
    });
}

void cBlendingBand::Finish(uint32_t row) {
    const cLayout& l = mLayout;
    const uint32_t y0 = (l.size.y - l.overlap) * row;
    const bool last = row == mLastY;
    const uint32_t rows = last ? l.stack.y - y0 : l.size.y - l.overlap;
    const std::size_t rowPixels = l.stack.x;
    // Each slice's final rows take the first look just before they are written, so that the
    // write finds them in the cache.
    mWriter->WriteBand(mBand, rows, y0, l.stack.y, [&](uint32_t z) {
        if (mLook)
            mLook->FirstLook(new cFloatImage(mBand->GetSlicePointer(z),
                                             cImageDimensions{l.stack.x, rows, 1}, Contiguous3D,
                                             GetObjectName()));
    });
    if (last)
        return;
    for (uint32_t z = 0; z < l.stack.z; ++z) {
        float* slice = mBand->GetSlicePointer(z);
        std::memmove(slice, slice + rows * rowPixels, l.overlap * rowPixels * sizeof(float));
    }
}

} // namespace Ovidane
