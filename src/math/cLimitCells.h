#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Ovidane {

// The bin of a value among sorted limits: how many limits lie at or below it (the index of
// the first limit above it, as std::upper_bound gives it). A search costs a few dependent
// steps per value; this finds most bins with one table look-up and one comparison. Floats
// are split into cells by their sign, exponent and top four mantissa bits, each cell a range
// of a sixteenth of an octave, so that limits spaced further apart than that (the geometric
// steps of a pedestal search are a ninth apart) leave at most one limit in any cell. A cell
// that holds more, and the cell of infinities and NaNs, is searched over its own limits.
// Every value gets exactly the bin of the full search, NaN included (the count of limits).
class cLimitCells {
public:
    // `limits` must be sorted, and stay alive and unchanged while the table is used.
    explicit cLimitCells(const std::vector<float>& limits);

    std::size_t Bin(float v) const {
        const cCell& cell = mCells[std::bit_cast<uint32_t>(v) >> kDropped];
        if (cell.count <= 1)
            return cell.base + !(v < cell.limit);
        return cell.base + FirstLimitAbove(mLimits + cell.base, cell.count, v);
    }

    // The full search over n >= 1 sorted limits: every halving step is a conditional move
    // rather than a branch, since values land in no order a branch predictor could follow.
    static std::size_t FirstLimitAbove(const float* limits, std::size_t n, float v);

private:
    static constexpr unsigned kDropped = 19; // 32 bits less sign, exponent and 4 mantissa bits

    struct cCell {
        // The one limit inside the cell (+infinity, above all its values, when there is
        // none), the count of limits below the cell, and of those inside.
        float limit;
        uint32_t base;
        uint32_t count;
    };

    const float* mLimits;
    std::vector<cCell> mCells;
};

} // namespace Ovidane
