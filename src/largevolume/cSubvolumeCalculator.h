#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// Cuts a stack into overlapping subvolumes for restoration one at a time: how many along
// each axis, the interior size of each, the guard band around it, and the window of the
// stack each one reads. Pure arithmetic on sizes.
//
// Use: set the fields, call CalculateSubvolumes, then CalculateGuardBands, then ask
// GetSubvolumeRegion for each subvolume. The subclasses differ only in how the counts are
// chosen: by fixed size limits or by a memory budget.
class cSubvolumeCalculator : public cOvdObject {
public:
    ~cSubvolumeCalculator() override = default;

    // Fills subvolume size and count. 0 on success; 1 when the XY guard band isn't below
    // both the x and the y size of the stack, or when the guard bands and the overlap are
    // too wide for any subvolume to meet the size limit.
    virtual int CalculateSubvolumes() = 0;

    // Fills the low and high guard bands; call after CalculateSubvolumes. Answers 0.
    virtual int CalculateGuardBands();

    // A size made of the factors 2, 3 and 5 with at least one factor 2, found from `value`
    // upward (step +1) or downward (step -1); the sign of value is kept. 0, 1 and -1 are
    // answered as they are.
    virtual int GetFastSize(int value, int step);

    // The window of the stack that subvolume (ix, iy, iz) reads: box in stack coordinates
    // (both corners inclusive), offset of the interior within the window, the window's
    // size, and the padded size the subvolume is brought to. Answers 0.
    int GetSubvolumeRegion(uint32_t ix, uint32_t iy, uint32_t iz, cImageBox& box,
                           cImagePosition& offset, cImageDimensions& size,
                           cImageDimensions& padded) const;

    // Interior size plus both guard bands, per axis.
    cImageDimensions GetPaddedSize() const;

    uint32_t GetElementSize() const { return mElementSize; }
    // Bytes per pixel in the budget sums; a value of 0 keeps the old one.
    void SetElementSize(uint32_t bytes) {
        if (bytes > 0)
            mElementSize = bytes;
    }

    const cImageDimensions& GetImageSize() const { return mImageSize; }
    void SetImageSize(const cImageDimensions& size) { mImageSize = size; }
    const cImageDimensions& GetSubvolumeSize() const { return mSubvolumeSize; }
    void SetSubvolumeSize(const cImageDimensions& size) { mSubvolumeSize = size; }
    const cImageDimensions& GetSubvolumeCount() const { return mSubvolumeCount; }
    void SetSubvolumeCount(const cImageDimensions& count) { mSubvolumeCount = count; }
    const cImageDimensions& GetLowGuardBand() const { return mLowGuardBand; }
    void SetLowGuardBand(const cImageDimensions& band) { mLowGuardBand = band; }
    const cImageDimensions& GetHighGuardBand() const { return mHighGuardBand; }
    void SetHighGuardBand(const cImageDimensions& band) { mHighGuardBand = band; }

    uint32_t GetOverlap() const { return mOverlap; }
    void SetOverlap(uint32_t overlap) { mOverlap = overlap; }
    uint32_t GetXYGuardBand() const { return mXYGuardBand; }
    void SetXYGuardBand(uint32_t band) { mXYGuardBand = band; }
    uint32_t GetZGuardBand() const { return mZGuardBand; }
    void SetZGuardBand(uint32_t band) { mZGuardBand = band; }

    // Budget in bytes for one subvolume's working images; 0 lets the dynamic cut work it
    // out from the machine's memory.
    int64_t GetMemorySize() const { return mMemorySize; }
    void SetMemorySize(int64_t bytes) { mMemorySize = bytes; }

    bool GetXYMontage() const { return mXYMontage; }
    void SetXYMontage(bool montage) { mXYMontage = montage; }
    bool GetZMontage() const { return mZMontage; }
    void SetZMontage(bool montage) { mZMontage = montage; }
    bool GetConfocal() const { return mConfocal; }
    void SetConfocal(bool confocal) { mConfocal = confocal; }
    bool GetIs2D() const { return mIs2D; }
    void SetIs2D(bool is2D) { mIs2D = is2D; }

protected:
    explicit cSubvolumeCalculator(std::string objectName = "cSubvolumeCalculator")
        : cOvdObject(std::move(objectName)) {}

    // Sizes as the counting sees them: a 2D stack counts as one slice deep.
    uint32_t CountingDepth() const { return mIs2D ? 1 : mImageSize.z; }

    // A 2D stack has no neighbouring slices to guard against, whatever band was asked for.
    uint32_t EffectiveZGuardBand() const { return mIs2D ? 0 : mZGuardBand; }

    // Overlap as the counting uses it: unless confocal, two neighbours must share at least
    // both their guard bands, so the overlap is raised to twice the XY guard band. The
    // stored overlap is what the windows stride by.
    uint32_t CountingOverlap() const;

    // A size as the fast-size search takes it; sizes past the int range are beyond any
    // stack and saturate.
    static int AsSize(uint64_t size) {
        return size > uint64_t{INT32_MAX} ? INT32_MAX : static_cast<int>(size);
    }

    // Size of each of n pieces of an axis of `size` pixels whose neighbours share
    // `overlap` pixels, plus a guard band on both sides.
    static uint64_t Candidate(uint32_t size, uint32_t overlap, uint32_t band, uint32_t n);

    // The smallest count n from 1 whose candidate passes `fits`. Both fast-size searches
    // grow with their argument, so every test here passes either at the smallest
    // candidate any count can reach or never; then there is no count and the answer is
    // empty instead of a search without end.
    template <class Fits>
    static std::optional<uint32_t> FindCount(uint32_t size, uint32_t overlap, uint32_t band,
                                             Fits fits);

    // The part both cuts share once the counts are chosen: interior sizes from the counts,
    // the guard band check, the rules for axes too short to cut, and storing.
    int FinishSubvolumes(cImageDimensions count, uint32_t overlap);

    uint32_t mElementSize = 4;
    cImageDimensions mImageSize{1, 1, 1};
    cImageDimensions mSubvolumeSize{1, 1, 1};
    cImageDimensions mSubvolumeCount{1, 1, 1};
    cImageDimensions mLowGuardBand{1, 1, 1};
    cImageDimensions mHighGuardBand{1, 1, 1};
    uint32_t mOverlap = 0;
    uint32_t mXYGuardBand = 0;
    uint32_t mZGuardBand = 0;
    int64_t mMemorySize = 0;
    bool mXYMontage = true;
    bool mZMontage = false;
    bool mConfocal = false;
    bool mIs2D = false;
};

template <class Fits>
std::optional<uint32_t> cSubvolumeCalculator::FindCount(uint32_t size, uint32_t overlap,
                                                        uint32_t band, Fits fits) {
    // Past size - overlap + 1 pieces the candidate stops shrinking: every piece is then
    // the overlap plus one pixel of remainder at most. A size not above the overlap is
    // smallest in one piece.
    const uint32_t smallest = size > overlap ? overlap : size;
    if (!fits(uint64_t{smallest} + 2ull * band))
        return std::nullopt;
    uint32_t n = 1;
    while (!fits(Candidate(size, overlap, band, n)))
        ++n;
    return n;
}

} // namespace Ovidane
