#pragma once
// How the generic image math walks images: line by line, with a line pointer fetched once
// per line, spread over the worker threads. Reductions split the lines into a partition
// that depends on the image alone (never on the thread count) and combine the partial
// results in partition order, so a sum is bit-identical for any number of threads.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/cWorkerPool.h"
#include "core/cWorkerThreads.h"
#include "image/cOvdImage.h"

namespace Ovidane::ImageWalk {

// Lines of at most this many pixels in total form one piece of a reduction's partition: a
// quarter of a 256 x 256 slice, so that the streaming passes, which reduce a slice at a time,
// share each slice among the threads.
inline constexpr uint64_t kPiecePixels = 1u << 14;

// Below this many pixels a fan-out costs more than it saves.
inline constexpr uint64_t kParallelPixels = 1u << 15;

inline int ThreadsFor(uint64_t pixels) {
    return pixels < kParallelPixels ? 1 : cWorkerThreads::Count();
}

// Calls line(y, z) for every line of an image of `size`, lines in parallel. The body
// must write only to its own line.
template <class LineBody> void ForEachLine(const cImageDimensions& size, LineBody&& line) {
    const int64_t lines = int64_t{size.y} * size.z;
    cWorkerPool::ForEach(lines, ThreadsFor(size.Voxels()), [&](int64_t l, int) {
        line(static_cast<uint32_t>(l % size.y), static_cast<uint32_t>(l / size.y));
    });
}

// Calls slice(z) for every slice, slices in parallel.
template <class SliceBody> void ForEachSlice(const cImageDimensions& size, SliceBody&& slice) {
    cWorkerPool::ForEach(int64_t{size.z}, ThreadsFor(size.Voxels()),
                         [&](int64_t z, int) { slice(static_cast<uint32_t>(z)); });
}

// Deterministic reduction over the lines of an image: `line(y, z, partial)` adds one
// line into a piece's partial result (starting at `zero`), and `combine(total, partial)`
// joins the pieces in their fixed order.
template <class Value, class LineBody, class Combine>
Value ReduceLines(const cImageDimensions& size, Value zero, LineBody&& line, Combine&& combine) {
    const int64_t lines = int64_t{size.y} * size.z;
    if (lines == 0 || size.x == 0)
        return zero;
    const int64_t linesPerPiece = std::max<int64_t>(1, int64_t(kPiecePixels / size.x));
    const int64_t pieces = (lines + linesPerPiece - 1) / linesPerPiece;
    std::vector<Value> partial(static_cast<std::size_t>(pieces), zero);
    cWorkerPool::ForEach(pieces, ThreadsFor(size.Voxels()), [&](int64_t p, int) {
        const int64_t end = std::min(lines, (p + 1) * linesPerPiece);
        for (int64_t l = p * linesPerPiece; l < end; ++l)
            line(static_cast<uint32_t>(l % size.y), static_cast<uint32_t>(l / size.y), partial[p]);
    });
    Value total = zero;
    for (const Value& piece : partial)
        combine(total, piece);
    return total;
}

} // namespace Ovidane::ImageWalk
