#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace Ovidane {

// The K-th smallest of the negative floats it is shown, in one look at each: it keeps every
// value below a bound, with a histogram of the kept values by their top sixteen bits, and
// whenever its room of 2K fills, lowers the bound to the end of the bin that holds the K-th
// smallest kept value and drops the values above it (one pass, no sort). Only where that bin
// alone holds too many does it sort out exactly K.
//
// Only values below 0 count (NaN never does): the K-th smallest of them is the K-th smallest
// value shown, where K or more are negative.
class cSmallestValues {
public:
    // k >= 1. Takes its room of 2K values at once, so that Look never allocates.
    explicit cSmallestValues(std::size_t k);

    void Look(const float* values, std::size_t count);
    // Looks at the values `other` keeps (another object than this, of the same K): then this
    // one answers for every value either was shown, since each of the K smallest of them is
    // among the K smallest of the one that saw it.
    void Merge(const cSmallestValues& other);
    // The K-th smallest negative value shown; +infinity when fewer than K were.
    float KthSmallest() const;

    // Values held now (for the tests of its memory).
    std::size_t Kept() const { return mKeptCount; }

private:
    // Drops kept values that can't be among the K smallest; leaves at most 3K / 2.
    void Thin();
    // The histogram bin of the K-th smallest kept value (at least K are kept), and how many
    // kept values lie in the bins below it.
    std::pair<uint32_t, std::size_t> BinOfKth() const;

    std::size_t mK;
    std::unique_ptr<float[]> mKept;
    std::size_t mKeptCount = 0;
    float mBound = 0.0f;
    std::vector<uint32_t> mBins; // kept values by bin
};

} // namespace Ovidane
