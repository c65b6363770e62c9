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
// Interior rows a piece of work smooths: its first two lines of roots are extra work, so a
// piece takes many rows, and still enough pieces that a single plane spreads over threads.
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
    const uint32_t interior = ny - 2;
    const uint32_t blocks = (interior + kRowsPerPiece - 1) / kRowsPerPiece;
    const int threads = ImageWalk::ThreadsFor(size.Voxels());
    // Per thread: three rows of roots of the slice (indexed by row % 3) and the rows of the
    // slices before and after.
    std::vector<float> scratch(std::size_t(threads) * 5 * nx);
    cWorkerPool::ForEach(int64_t{blocks} * nz, threads, [&](int64_t piece, int worker) {
        const auto z = static_cast<uint32_t>(piece / blocks);
        const uint32_t first = 1 + static_cast<uint32_t>(piece % blocks) * kRowsPerPiece;
        const uint32_t end = std::min(first + kRowsPerPiece, ny - 1);
        float* rows = scratch.data() + std::size_t(worker) * 5 * nx;
        float* previous = rows + 3 * nx;
        float* next = rows + 4 * nx;
        const bool face = z == 0 || z + 1 == nz;
        auto root = [&](uint32_t y, uint32_t slice, float* to) {
            PassKernels::SquareRootLine(nx, estimate.GetLinePointer(y, slice), to);
        };
        auto ring = [&](uint32_t y) { return rows + std::size_t(y % 3) * nx; };
        root(first - 1, z, ring(first - 1));
        root(first, z, ring(first));
        for (uint32_t y = first; y < end; ++y) {
            root(y + 1, z, ring(y + 1));
            if (!face) {
                root(y, z - 1, previous);
                root(y, z + 1, next);
            }
            float* smoothed = out.GetLinePointer(y, z);
            std::memcpy(smoothed, estimate.GetLinePointer(y, z), lineBytes);
            PassKernels::RoughnessLine(nx, smoothed, ring(y), ring(y - 1), ring(y + 1),
                                       face ? nullptr : previous, face ? nullptr : next, beta,
                                       kGuard);
        }
        // The slice's first and last row keep their values.
        if (first == 1)
            std::memcpy(out.GetLinePointer(0, z), estimate.GetLinePointer(0, z), lineBytes);
        if (end == ny - 1)
            std::memcpy(out.GetLinePointer(ny - 1, z), estimate.GetLinePointer(ny - 1, z),
                        lineBytes);
    });
}

} // namespace Ovidane
