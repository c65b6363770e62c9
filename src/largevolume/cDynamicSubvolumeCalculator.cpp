#include "largevolume/cDynamicSubvolumeCalculator.h"

#include <algorithm>
#include <cmath>

#include "largevolume/SubvolumeMemoryBudget.h"

namespace Ovidane {

int cDynamicSubvolumeCalculator::CalculateSubvolumes() {
    return Guard([&] {
        // The budget of a cut that is left to the machine must hold all the working
        // images of a restoration with its estimates.
        constexpr int kMachineBudgetMode = 3;
        // The budget sums are made in 32-bit sizes.
        constexpr int64_t kLargestBudget = 2147483647;
        // No subvolume edge is aimed below this, and thinner stacks are not cut in z.
        constexpr int64_t kSmallestEdge = 90;
        constexpr uint32_t kShortestZForMontage = 90;
        // One third as the single-precision power takes it.
        constexpr float kCubeRootPower = 0.3333333432674408f;

        if (mMemorySize == 0)
            mMemorySize = GetSubvolumeMemoryBudget(kMachineBudgetMode);
        // A negative budget holds nothing.
        const int64_t memory = std::clamp<int64_t>(mMemorySize, 0, kLargestBudget);

        const uint32_t overlap = CountingOverlap();
        const uint32_t g = mXYGuardBand;
        const uint32_t gz = EffectiveZGuardBand();
        const uint32_t x = mImageSize.x;
        const uint32_t y = mImageSize.y;
        const uint32_t z = CountingDepth();
        auto up = [this](uint64_t size) -> int64_t { return GetFastSize(AsSize(size), 1); };
        auto down = [this](uint64_t size) -> int64_t { return GetFastSize(AsSize(size), -1); };
        auto downOrSelf = [&](int64_t size) { return down(size) != 0 ? down(size) : size; };

        // Target edge and area of a subvolume in x and y, and target depth.
        int64_t edge = 0;
        int64_t area = 0;
        int64_t depth = 0;
        if (mXYMontage && !mZMontage) {
            // The whole depth is in every subvolume; the rest of the budget is a square.
            const int64_t paddedDepth = std::max<int64_t>(up(uint64_t{z} + 2ull * gz), 1);
            const float pixels = static_cast<float>(memory / paddedDepth / mElementSize);
            const auto side = static_cast<int64_t>(std::sqrt(pixels));
            area = side * side;
            edge = downOrSelf(side);
        } else if (mXYMontage && mZMontage) {
            // A cube.
            const float pixels = static_cast<float>(memory / mElementSize);
            const auto side = static_cast<int64_t>(std::pow(pixels, kCubeRootPower));
            area = side * side;
            edge = depth = downOrSelf(side);
        } else if (mZMontage) {
            // Whole slices, as many as fit.
            const int64_t slice = std::max<int64_t>(int64_t{mElementSize} * x * y, 1);
            depth = downOrSelf(memory / slice);
        }
        if (area == 0)
            area = edge * edge;
        edge = std::max(edge, kSmallestEdge);

        cImageDimensions count{1, 1, 1};
        if (mXYMontage && up(uint64_t{x} + 2ull * g) * up(uint64_t{y} + 2ull * g) >= area) {
            // Cut the long axis to the edge first, then give the short axis what is left of
            // the square.
            const bool yIsLong = y >= x;
            const uint32_t longSize = yIsLong ? y : x;
            const uint32_t shortSize = yIsLong ? x : y;
            const auto longCount = FindCount(
                longSize, overlap, g, [&](uint64_t candidate) { return up(candidate) <= edge; });
            if (!longCount)
                return 1;
            const int64_t longPadded =
                std::max<int64_t>(up(Candidate(longSize, overlap, g, *longCount)), 1);
            const int64_t shortLimit = edge * edge / longPadded;
            const auto shortCount = FindCount(shortSize, overlap, g, [&](uint64_t candidate) {
                return up(candidate) <= shortLimit;
            });
            if (!shortCount)
                return 1;
            uint32_t nLong = *longCount;
            const uint32_t nShort = *shortCount;
            if (nShort == 1 && nLong > 1) {
                // The short axis stays whole: a narrow strip may then be longer than the
                // square's edge, so cut the long axis by the area instead.
                const int64_t shortPadded = up(uint64_t{shortSize} + 2ull * g);
                const auto byArea = FindCount(longSize, overlap, g, [&](uint64_t candidate) {
                    return up(candidate) * shortPadded <= area;
                });
                // Where rounding left the area below what the square allowed, the cut by
                // the edge stands.
                if (byArea)
                    nLong = *byArea;
            }
            count.x = yIsLong ? nShort : nLong;
            count.y = yIsLong ? nLong : nShort;
        }
        if (mZMontage && z >= kShortestZForMontage) {
            const auto nz = FindCount(z, overlap, gz,
                                      [&](uint64_t candidate) { return up(candidate) <= depth; });
            if (!nz)
                return 1;
            count.z = *nz;
        }
        return FinishSubvolumes(count, overlap);
    });
}

} // namespace Ovidane
