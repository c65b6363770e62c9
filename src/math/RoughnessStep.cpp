#include "math/RoughnessStep.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"
#include "math/HighwayKernels.h"

namespace Ovidane {
namespace {

// Interior rows a piece of work smooths through the whole depth. The roots of the two rows
// beside a block are taken twice, by both blocks; enough rows keep that small, and still
// enough blocks that a single plane spreads over the threads.
constexpr uint32_t kRowsPerPiece = 16;

} // namespace

void GoodsRoughnessStep(const cFloatImage& estimate, const cFloatImage& out, float beta) {
    namespace K = HighwayKernels;
    const cImageDimensions size = estimate.GetDimensions();
    const uint32_t nx = size.x, ny = size.y, nz = size.z;
    const std::size_t lineBytes = std::size_t{nx} * sizeof(float);
    // A line that keeps its values, held at the guard value.
    auto keep = [&](uint32_t y, uint32_t z) {
        float* line = out.GetLinePointer(y, z);
        std::memcpy(line, estimate.GetLinePointer(y, z), lineBytes);
        K::FloorAtGuard(line, nx);
    };
    if (nx < 3 || ny < 3) {
        ImageWalk::ForEachLine(size, keep);
        return;
    }
    const float inPlane = 1.0f / (beta * 4.0f + 1.0f);
    const float inVolume = 1.0f / (beta * 6.0f + 1.0f);
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
                K::Unary(K::eUnary::GuardedSquareRoot, roots(y, z), estimate.GetLinePointer(y, z),
                         nx, {});
        };
        takeRoots(0);
        for (uint32_t z = 0; z < nz; ++z) {
            if (z + 1 < nz)
                takeRoots(z + 1);
            const bool face = z == 0 || z + 1 == nz;
            for (uint32_t y = first; y < end; ++y) {
                float* smoothed = out.GetLinePointer(y, z);
                std::memcpy(smoothed, estimate.GetLinePointer(y, z), lineBytes);
                K::RoughnessLine(smoothed, roots(y, z), roots(y - 1, z), roots(y + 1, z),
                                 face ? nullptr : roots(y, z + 1), face ? nullptr : roots(y, z - 1),
                                 nx, beta, face ? inPlane : inVolume);
            }
            // The slice's first and last row keep their values.
            if (first == 1)
                keep(0, z);
            if (end == ny - 1)
                keep(ny - 1, z);
        }
    });
}

} // namespace Ovidane
