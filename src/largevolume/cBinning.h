#pragma once
#include <cstdint>
#include <string>

#include "core/cImageDimensions.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/cProcessingAction.h"

namespace Ovidane {

// Shrinks each slice by bin factors in x and y and, in the same pass, keeps in a side file
// what is needed to bring the full resolution back; a second cBinning in reading mode does
// that after the restoration.
//
// Writing mode: the binned slice is the area sum over each bx by by block, so a binned
// pixel carries the intensity of the pixels it replaces. The side file (the ratio file, a
// float stack of the full slice size, one slice per slice) receives
//     (I / mI) * a / (a^2 + 0.01),
// with I the slice, mI its mean and a the binned slice brought back to full size and
// scaled to mean 1: about I / (mI * a), the detail that binning loses, where a is well
// above 0.1, falling to 0 where a does.
// Reading mode: each (binned) slice is brought back to full size, its intensity spread
// over the larger area again, and multiplied by the matching ratio slice.
class cBinning : public cProcessingAction {
public:
    // Factors bx, by (a factor of 0 counts as 1) and the size of the full-resolution
    // slices: W, H (depth 1 in a pass). Writing mode makes a writer on `fileName` and
    // opens it; reading mode a reader of size W, H, depth.
    cBinning(uint32_t binX, uint32_t binY, uint32_t width, uint32_t height, uint32_t depth,
             const std::string& fileName, bool writing);

    // With both factors below 2 nothing changes and nothing is written. Otherwise the
    // slice is replaced by the binned one (writing) or the restored one (reading), and
    // the ratio slice z is written or read. A failed transfer on the ratio file doesn't
    // stop the pass; Finish reports it.
    int Process(cFloatImagePtr& image, uint32_t z) override;
    // Closes the ratio file; a later Process opens it anew, from its start. 0; 5 when a
    // ratio slice didn't reach the file whole; 1 when one couldn't be read, in which case
    // that slice was restored without its detail.
    int Finish() override;

    // Size of the slices this action hands on: W/bx by H/by (writing) or W by H (reading),
    // by the depth given.
    virtual cImageDimensions GetResultDimensions() const { return mResultSize; }

private:
    bool Bins() const { return mBinX >= 2 || mBinY >= 2; }
    void Shrink(cFloatImagePtr& image);
    void Restore(cFloatImagePtr& image, uint32_t z);
    // `in` to the result image's size, and the intensity scaled by the change in pixel count.
    void Resample(const cFloatImagePtr& in);
    // Work images of the full slice size for the ratio map, made on first use.
    void PrepareRatioImages(const cImageDimensions& slice);

    uint32_t mBinX;
    uint32_t mBinY;
    cImageDimensions mFullSize;
    cImageDimensions mResultSize;
    std::string mFileName;
    bool mWriting;
    bool mTransferFailed = false;
    cCountedPtr<cUnmanagedRawFileReader> mReader;
    cCountedPtr<cUnmanagedRawFileWriter> mWriter;
    cFloatImagePtr mResult;
    cFloatImagePtr mFirstWork;  // x pass of the resampling
    cFloatImagePtr mSecondWork; // y pass of the resampling
    // Writing mode: the binned slice brought back to full size, then the ratio map; the
    // y-pass work image of that resampling, then the map's denominator; its x-pass work
    // image. Reading mode: the ratio slice.
    cFloatImagePtr mRatio;
    cFloatImagePtr mDenominator;
    cFloatImagePtr mUpsampleWork;
};

} // namespace Ovidane
