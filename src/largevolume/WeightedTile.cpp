#include "largevolume/WeightedTile.h"

#include <algorithm>

#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"

namespace Ovidane {

void AddWeightedTile(const cOvdImage<float>& tile, const cImageDimensions& origin,
                     const cOvdImage<float>& mask, const cOvdImage<float>& out, uint32_t w,
                     uint32_t h, uint32_t x0, uint32_t y0, uint32_t freshX, uint32_t freshY) {
    const uint32_t slices = out.GetSizeZ();
    const uint32_t freshFrom = freshX > x0 ? std::min(w, freshX - x0) : 0;
    cWorkerPool::ForEach(int64_t{h} * slices, ImageWalk::ThreadsFor(uint64_t{w} * h * slices),
                         [&](int64_t line, int) {
                             const auto y = static_cast<uint32_t>(line % h);
                             const auto z = static_cast<uint32_t>(line / h);
                             const float* t =
                                 tile.GetLinePointer(origin.y + y, origin.z + z) + origin.x;
                             const float* m = mask.GetLinePointer(y, 0);
                             float* o = out.GetLinePointer(y0 + y, z) + x0;
                             const uint32_t added = y0 + y >= freshY ? freshFrom : w;
                             for (uint32_t x = 0; x < added; ++x)
                                 o[x] = t[x] * m[x] + o[x];
                             for (uint32_t x = added; x < w; ++x)
                                 o[x] = t[x] * m[x] + 0.0f;
                         });
}

} // namespace Ovidane
