#include "largevolume/cSubvolumeCalculator.h"

#include <algorithm>
#include <cstdlib>

#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {

// The first power of two at or above `value`, from the image math service.
int PowerOfTwoAtOrAbove(int value) {
    return cImageMathManager::Instance().GetImageMath()->NearestPowerOfTwo(value, 1);
}

// Removes every factor `f` from `value`.
int64_t DivideOut(int64_t value, int64_t f) {
    while (value % f == 0)
        value /= f;
    return value;
}

// The part of one axis's window that GetSubvolumeRegion reports.
struct cAxisWindow {
    uint32_t start = 0;
    uint32_t end = 0; // one past the last pixel
    uint32_t offset = 0;
    uint32_t padded = 0;
};

// Window of subvolume `index` of `count` along an axis of `stackSize` pixels, for an
// interior of `interior` pixels with `low` and `high` guard bands whose neighbours share
// `overlap` pixels. The first window begins at the stack's start and the last ends at the
// stack's end; the others reach a full band's width P = low + high beyond the interior on
// both sides, so the periodic fill that follows has real data to blend. No window leaves
// the stack.
cAxisWindow AxisWindow(uint32_t index, uint32_t count, uint32_t stackSize, uint32_t interior,
                       uint32_t low, uint32_t high, uint32_t overlap) {
    const uint64_t bands = uint64_t{low} + high;
    const uint64_t padded = interior + bands;
    // Interiors stride by their size less the overlap; the counting makes interiors
    // larger than the overlap whenever there is more than one subvolume.
    const uint64_t interiorStart = (uint64_t{interior} - overlap) * index;

    cAxisWindow window;
    window.padded = static_cast<uint32_t>(padded);
    uint64_t start = 0;
    uint64_t end = 0;
    if (index == 0) {
        start = 0;
        end = count != 1 ? padded : stackSize;
    } else {
        start = interiorStart > bands ? interiorStart - bands : 0;
        end = index != count - 1 ? interiorStart + padded : stackSize;
    }
    end = std::min<uint64_t>(end, stackSize);
    window.start = static_cast<uint32_t>(start);
    window.end = static_cast<uint32_t>(end);
    // Where the interior begins inside the window: the full band width, unless the
    // window was cut at the stack's start.
    window.offset = static_cast<uint32_t>(interiorStart - start);
    return window;
}

} // namespace

int cSubvolumeCalculator::GetFastSize(int value, int step) {
    if (value == 0 || value == 1 || value == -1)
        return value;
    const int64_t magnitude = std::llabs(int64_t{value});
    // Test candidates from one above the value, each by the half that an even size
    // has: the answer is twice a half that has no factors but 2, 3 and 5.
    for (int64_t candidate = magnitude + 1;; candidate += step) {
        const int64_t half = candidate / 2;
        if (DivideOut(DivideOut(DivideOut(half, 2), 3), 5) == 1) {
            const int64_t fast = 2 * half;
            return static_cast<int>(value < 0 ? -fast : fast);
        }
    }
}

uint32_t cSubvolumeCalculator::CountingOverlap() const {
    if (!mConfocal && mOverlap < 2 * mXYGuardBand)
        return 2 * mXYGuardBand;
    return mOverlap;
}

uint64_t cSubvolumeCalculator::Candidate(uint32_t size, uint32_t overlap, uint32_t band,
                                         uint32_t n) {
    return (uint64_t{size} + uint64_t{n - 1} * overlap) / n + 2ull * band;
}

int cSubvolumeCalculator::FinishSubvolumes(cImageDimensions count, uint32_t overlap) {
    const uint32_t x = mImageSize.x;
    const uint32_t y = mImageSize.y;
    const uint32_t z = CountingDepth();
    // Neighbouring interiors are laid out one pixel wider than the overlap, so that even
    // after rounding down they still share the overlap and reach the stack's end.
    const uint64_t step = uint64_t{overlap} + 1;
    cImageDimensions size;
    size.x = static_cast<uint32_t>(((count.x - 1) * step + x) / count.x);
    size.y = static_cast<uint32_t>(((count.y - 1) * step + y) / count.y);
    size.z = static_cast<uint32_t>(((count.z - 1) * step + z) / count.z);

    if (!(mXYGuardBand < x && mXYGuardBand < y))
        return 1;

    // An axis below 91 pixels is too short to be worth cutting: it is taken whole.
    constexpr uint32_t kShortestCutAxis = 91;
    if (z < kShortestCutAxis) {
        size.z = z;
        mZMontage = false;
    }
    if (y < kShortestCutAxis) {
        size.y = y;
        count.y = 1;
    }
    if (x < kShortestCutAxis) {
        size.x = x;
        count.x = 1;
        if (y < kShortestCutAxis)
            mXYMontage = false;
    }
    if (!mXYMontage) {
        size.x = x;
        size.y = y;
        count.x = 1;
        count.y = 1;
    }
    // The slices of a 2D stack are restored one by one, each as its own subvolume.
    if (mIs2D) {
        count.z = mImageSize.z;
        size.z = 1;
    } else if (!mZMontage) {
        count.z = 1;
    }
    mSubvolumeSize = size;
    mSubvolumeCount = count;
    return 0;
}

int cSubvolumeCalculator::CalculateGuardBands() {
    return Guard([&] {
        const cImageDimensions& s = mSubvolumeSize;
        const cImageDimensions& n = mSubvolumeCount;
        // An inner face has a neighbour whose guard band meets its own, so it gets twice
        // the band; confocal stacks keep the plain band.
        auto factor = [&](uint32_t count) -> uint32_t { return count > 1 && !mConfocal ? 2 : 1; };
        const uint32_t g = mXYGuardBand;
        const uint32_t gz = EffectiveZGuardBand();

        const int px = GetFastSize(static_cast<int>(s.x + g * factor(n.x) * 2), 1);
        const int py = GetFastSize(static_cast<int>(s.y + g * factor(n.y) * 2), 1);
        const int wantedZ = static_cast<int>(s.z + gz * factor(n.z) * 2);
        const int pz0 = GetFastSize(wantedZ, 1);
        const int pz1 = PowerOfTwoAtOrAbove(wantedZ);

        // A power of two in z transforms faster than a mixed size; take it when the mixed
        // size doesn't save an eighth and the budget has room for it.
        int pz = pz0 < pz1 * 7 / 8 ? pz0 : pz1;
        const int64_t costPz = int64_t{mElementSize} * pz * py * px;
        const int64_t costPz0 = int64_t{mElementSize} * pz0 * py * px;
        if (!(costPz0 > 7 * costPz / 8 && costPz < mMemorySize))
            pz = pz0;

        // The high side takes the odd pixel.
        auto split = [](uint32_t padded, uint32_t interior, uint32_t& low, uint32_t& high) {
            low = (padded - interior) / 2;
            high = padded - low - interior;
        };
        split(static_cast<uint32_t>(px), s.x, mLowGuardBand.x, mHighGuardBand.x);
        split(static_cast<uint32_t>(py), s.y, mLowGuardBand.y, mHighGuardBand.y);
        split(static_cast<uint32_t>(pz), s.z, mLowGuardBand.z, mHighGuardBand.z);
        return 0;
    });
}

int cSubvolumeCalculator::GetSubvolumeRegion(uint32_t ix, uint32_t iy, uint32_t iz, cImageBox& box,
                                             cImagePosition& offset, cImageDimensions& size,
                                             cImageDimensions& padded) const {
    const cAxisWindow wx = AxisWindow(ix, mSubvolumeCount.x, mImageSize.x, mSubvolumeSize.x,
                                      mLowGuardBand.x, mHighGuardBand.x, mOverlap);
    const cAxisWindow wy = AxisWindow(iy, mSubvolumeCount.y, mImageSize.y, mSubvolumeSize.y,
                                      mLowGuardBand.y, mHighGuardBand.y, mOverlap);
    // The slices of a 2D stack are separate subvolumes that share nothing.
    const cAxisWindow wz = AxisWindow(iz, mSubvolumeCount.z, mImageSize.z, mSubvolumeSize.z,
                                      mLowGuardBand.z, mHighGuardBand.z, mIs2D ? 0 : mOverlap);

    padded = {wx.padded, wy.padded, wz.padded};
    offset = {wx.offset, wy.offset, wz.offset};
    size = {wx.end - wx.start, wy.end - wy.start, wz.end - wz.start};
    box = {wx.start, wy.start, wz.start, wx.end - 1, wy.end - 1, wz.end - 1};
    return 0;
}

cImageDimensions cSubvolumeCalculator::GetPaddedSize() const {
    return {mSubvolumeSize.x + mLowGuardBand.x + mHighGuardBand.x,
            mSubvolumeSize.y + mLowGuardBand.y + mHighGuardBand.y,
            mSubvolumeSize.z + mLowGuardBand.z + mHighGuardBand.z};
}

} // namespace Ovidane
