#include "largevolume/WeightedTile.h"

#include <algorithm>
#include <atomic>

#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"
#include "math/PassKernels.h"

namespace Ovidane {

namespace {

// How many rows ahead a line asks for the output's row.
constexpr uint32_t kAhead = 4;

} // namespace

bool AddWeightedTile(const cOvdImage<float>& tile, const cImageDimensions& origin,
                     const cOvdImage<float>& mask, const cOvdImage<float>& out, uint32_t w,
                     uint32_t h, uint32_t x0, uint32_t y0, uint32_t freshX, uint32_t freshY) {
    const uint32_t slices = out.GetSizeZ();
    const uint32_t freshFrom = freshX > x0 ? std::min(w, freshX - x0) : 0;
    // Cleared by any line that met a pixel that is no finite number; the tile is read here
    // anyway, so the test costs no pass of its own.
    std::atomic<bool> allFinite{true};
    cWorkerPool::ForEach(int64_t{h} * slices, ImageWalk::ThreadsFor(uint64_t{w} * h * slices),
                         [&](int64_t line, int) {
                             const auto y = static_cast<uint32_t>(line % h);
                             const auto z = static_cast<uint32_t>(line / h);
                             const float* t =
                                 tile.GetLinePointer(origin.y + y, origin.z + z) + origin.x;
                             const float* m = mask.GetLinePointer(y, 0);
                             float* o = out.GetLinePointer(y0 + y, z) + x0;
                             const uint32_t added = y0 + y >= freshY ? freshFrom : w;
                             // Each row of `out` starts a page of its own, where the hardware
                             // begins to fetch ahead only after some misses: the row a few
                             // lines on is asked for now.
                             if (y + kAhead < h) {
                                 const float* next = out.GetLinePointer(y0 + y + kAhead, z) + x0;
                                 for (uint32_t x = 0; x < w; x += 16)
                                     __builtin_prefetch(next + x, 1, 3);
                             }
                             bool finite = PassKernels::WeightedAddLine(t, m, o, added, false);
                             finite &= PassKernels::WeightedAddLine(t + added, m + added,
                                                                    o + added, w - added, true);
                             if (!finite)
                                 allFinite.store(false, std::memory_order_relaxed);
                         });
    return allFinite.load();
}

} // namespace Ovidane
