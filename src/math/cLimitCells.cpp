#include "math/cLimitCells.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Ovidane {

std::size_t cLimitCells::FirstLimitAbove(const float* limits, std::size_t n, float v) {
    const float* base = limits;
    while (n > 1) {
        const std::size_t half = n / 2;
        base = v < base[half] ? base : base + half;
        n -= half;
    }
    return static_cast<std::size_t>(base - limits) + !(v < *base);
}

cLimitCells::cLimitCells(const std::vector<float>& limits)
    : mLimits(limits.data()), mCells(std::size_t{1} << (32 - kDropped)) {
    const uint32_t n = static_cast<uint32_t>(limits.size());
    constexpr uint32_t kRest = (1u << kDropped) - 1;
    for (uint32_t key = 0; key < mCells.size(); ++key) {
        cCell& cell = mCells[key];
        const float a = std::bit_cast<float>(key << kDropped);
        const float b = std::bit_cast<float>((key << kDropped) | kRest);
        if (!(a == a && b == b && std::abs(a) <= std::numeric_limits<float>::max() &&
              std::abs(b) <= std::numeric_limits<float>::max())) {
            // Infinities and NaNs: the whole search.
            cell = {0.0f, 0, n};
            continue;
        }
        // Within one sign the bit patterns of a cell are one range of values; negative
        // floats grow more negative as their bits grow.
        const float low = std::min(a, b), high = std::max(a, b);
        // Most cells lie wholly below or above the limits: no search for those.
        if (n == 0 || high < limits.front() || low > limits.back()) {
            cell = {std::numeric_limits<float>::infinity(), n == 0 || high < limits.front() ? 0 : n,
                    0};
            continue;
        }
        const auto first = std::lower_bound(limits.begin(), limits.end(), low);
        const auto end = std::upper_bound(limits.begin(), limits.end(), high);
        cell.base = static_cast<uint32_t>(first - limits.begin());
        cell.count = static_cast<uint32_t>(end - first);
        cell.limit = cell.count == 1 ? *first : std::numeric_limits<float>::infinity();
    }
}

} // namespace Ovidane
