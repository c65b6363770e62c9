#include "math/RoughnessStep.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"
#include "math/PassKernels.h"

namespace Ovidane {
namespace {

constexpr float kGuard = 1e-20f;
// Interior rows a piece of work smooths through the whole depth. The roots of the two rows
// beside a block are taken twice, by both blocks; enough rows keep that small, and still
// enough blocks that a single plane spreads over the threads.
constexpr uint32_t kRowsPerPiece = 16;

} // namespace

void GoodsRoughnessStep(const cFloatImage& estimate, const cFloatImage& out, float beta) {
    const cImageDimensions size = estimate.GetDimensions();
    const uint32_t nx = size.x, ny = size.y, nz = size.z;
    const std::size_t lineBytes = std::size_t{nx} * sizeof(float);
    if (nx < 3 || ny < 3) {
        // No pixel lies off the border of its slice.
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            std::memcpy(out.GetLinePointer(y, z), estimate.GetLinePointer(y, z), lineBytes);
        });
        return;
    }
    const uint32_t blocks = (ny - 2 + kRowsPerPiece - 1) / kRowsPerPiece;
    const int threads = ImageWalk::ThreadsFor(size.Voxels());
    // Per thread, the roots of a block's rows and the two beside it, for three slices (slice
    // z in ring z % 3): walking down the depth, each slice's roots are taken once.
    const std::size_t sliceFloats = std::size_t(kRowsPerPiece + 2) * nx;
    std::vector<float> scratch(std::size_t(threads) * 3 * sliceFloats);
    cWorkerPool::ForEach(int64_t{blocks}, threads, [&](int64_t block, int worker) {
        const uint32_t first = 1 + static_cast<uint32_t>(block) * kRowsPerPiece;
        const uint32_t end = std::min(first + kRowsPerPiece, ny - 1);
        float* ring = scratch.data() + std::size_t(worker) * 3 * sliceFloats;
        // The roots of row y of slice z.
        auto roots = [&](uint32_t y, uint32_t z) {
            return ring + std::size_t(z % 3) * sliceFloats + std::size_t(y - (first - 1)) * nx;
        };
        auto takeRoots = [&](uint32_t z) {
            for (uint32_t y = first - 1; y <= end; ++y)
                PassKernels::SquareRootLine(nx, estimate.GetLinePointer(y, z), roots(y, z));
        };
        takeRoots(0);
        for (uint32_t z = 0; z < nz; ++z) {
            if (z + 1 < nz)
                takeRoots(z + 1);
            const bool face = z == 0 || z + 1 == nz;
            for (uint32_t y = first; y < end; ++y) {
                float* smoothed = out.GetLinePointer(y, z);
                std::memcpy(smoothed, estimate.GetLinePointer(y, z), lineBytes);
                PassKernels::RoughnessLine(nx, smoothed, roots(y, z), roots(y - 1, z),
                                           roots(y + 1, z), face ? nullptr : roots(y, z - 1),
                                           face ? nullptr : roots(y, z + 1), beta, kGuard);
            }
            // The slice's first and last row keep their values.
            if (first == 1)
                std::memcpy(out.GetLinePointer(0, z), estimate.GetLinePointer(0, z), lineBytes);
            if (end == ny - 1)
                std::memcpy(out.GetLinePointer(ny - 1, z), estimate.GetLinePointer(ny - 1, z),
                            lineBytes);
        }
    });
}

} // namespace Ovidane
