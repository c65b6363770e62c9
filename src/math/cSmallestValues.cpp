#include "math/cSmallestValues.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "math/HighwayKernels.h"

namespace Ovidane {
namespace {

// Negative floats in ascending order of value are the unsigned integers of their bits in
// descending order: ~bits ascends with the value.
uint32_t OrderOf(float negative) {
    return ~std::bit_cast<uint32_t>(negative);
}

float FromOrder(uint32_t order) {
    return std::bit_cast<float>(~order);
}

constexpr unsigned kBinShift = 16;
// Bins of the negative floats: order keys below 2^31.
constexpr uint32_t kBins = 1u << (31 - kBinShift);
// The orders of the most negative finite float and of -0: finite negative values lie
// between them, -infinity below.
constexpr uint32_t kFirstFinite = 0x00800000u, kLastNegative = 0x7FFFFFFFu;

} // namespace

cSmallestValues::cSmallestValues(std::size_t k)
    : mK(std::max<std::size_t>(k, 1)),
      mKept(std::make_unique_for_overwrite<float[]>(2 * mK + HighwayKernels::kSplitSlack)),
      mBins(kBins, 0) {}

void cSmallestValues::Look(const float* values, std::size_t count) {
    // Thin leaves at most 3K / 2, so that K / 2 more always fit.
    const std::size_t chunk = std::max<std::size_t>(mK / 2, 1);
    for (std::size_t at = 0; at < count; at += chunk) {
        const std::size_t taken = std::min(chunk, count - at);
        if (mKeptCount + taken > 2 * mK)
            Thin();
        float* added = mKept.get() + mKeptCount;
        const std::size_t n = HighwayKernels::SplitBelow(values + at, taken, mBound, added);
        for (std::size_t i = 0; i < n; ++i)
            ++mBins[OrderOf(added[i]) >> kBinShift];
        mKeptCount += n;
    }
}

void cSmallestValues::Merge(const cSmallestValues& other) {
    Look(other.mKept.get(), other.mKeptCount);
}

std::pair<uint32_t, std::size_t> cSmallestValues::BinOfKth() const {
    std::size_t below = 0;
    uint32_t bin = 0;
    while (below + mBins[bin] < mK)
        below += mBins[bin++];
    return {bin, below};
}

void cSmallestValues::Thin() {
    if (mKeptCount < mK)
        return;
    // The values of the bins above the K-th's go; the bound becomes the start of the next
    // bin, a finite negative float.
    const uint32_t next = BinOfKth().first + 1;
    const uint32_t order = next << kBinShift;
    if (order >= kFirstFinite && order <= kLastNegative && FromOrder(order) < mBound) {
        mBound = FromOrder(order);
        float* kept = mKept.get();
        std::size_t n = 0;
        for (std::size_t i = 0; i < mKeptCount; ++i) {
            kept[n] = kept[i];
            n += kept[i] < mBound;
        }
        mKeptCount = n;
        std::fill(mBins.begin() + next, mBins.end(), 0u);
    }
    if (mKeptCount <= mK + mK / 2)
        return;
    float* kept = mKept.get();
    std::nth_element(kept, kept + mK - 1, kept + mKeptCount);
    mKeptCount = mK;
    // Values at the K-th or above can't be among the K smallest any more.
    mBound = kept[mK - 1];
    std::fill(mBins.begin(), mBins.end(), 0u);
    for (std::size_t i = 0; i < mKeptCount; ++i)
        ++mBins[OrderOf(kept[i]) >> kBinShift];
}

float cSmallestValues::KthSmallest() const {
    if (mKeptCount < mK)
        return std::numeric_limits<float>::infinity();
    // The K-th's bin, then its place among the low bits of that bin's values.
    const auto [bin, below] = BinOfKth();
    std::vector<uint32_t> low(std::size_t{1} << kBinShift, 0);
    const float* kept = mKept.get();
    for (std::size_t i = 0; i < mKeptCount; ++i) {
        const uint32_t order = OrderOf(kept[i]);
        if (order >> kBinShift == bin)
            ++low[order & ((1u << kBinShift) - 1)];
    }
    std::size_t seen = below;
    uint32_t bits = 0;
    while (seen + low[bits] < mK)
        seen += low[bits++];
    return FromOrder(bin << kBinShift | bits);
}

} // namespace Ovidane
