#pragma once
#include <memory>
#include <utility>
#include <vector>

#include "core/cImageDimensions.h"
#include "decon/cConstraint.h"
#include "decon/cPixelCorrection.h"
#include "decon/cWindowLines.h"

namespace Ovidane {

// Brings a subvolume cut from a stack to its padded size and makes it periodic, as the
// transforms take it to be. The padded image holds, per axis, the low guard band, the
// interior and the high guard band. In x and y the guard bands are filled with the stack's
// own data from beyond the interior's faces, faded out with a raised cosine and folded
// round, so that a line leaving one face comes back at the other with the weights of its
// two parts summing to 1. In z the guard slices are blended from the two outermost interior
// slices.
class cSubvolumeInterpolationConstraint : public cConstraint {
public:
    // offset: where the interior starts in the image that Apply gets, per axis; size: the
    // extent of the cut, kept for reference; padded: the size of the result; lowBand,
    // highBand: the guard bands below and above the interior.
    cSubvolumeInterpolationConstraint(const cImageDimensions& offset, const cImageDimensions& size,
                                      const cImageDimensions& padded,
                                      const cImageDimensions& lowBand,
                                      const cImageDimensions& highBand);

    void Setup() override {}
    // Replaces the image by its padded, periodic form.
    void Apply(cFloatImagePtr& image) override;

    // The padded, periodic form of image, a new image of the padded size. The image given
    // may be larger or smaller than that: reads past its faces repeat its edge pixels.
    cFloatImagePtr InterpolateSubVolume(const cFloatImagePtr& image);

    const cImageDimensions& GetSize() const { return mSize; }

    // Corrections to make, in order, on the image's pixels before they are padded: the same
    // result as applying them to the image first, made on each line as it is read, without
    // a pass of their own.
    void CorrectFirst(std::vector<cPixelCorrectionPtr> corrections) {
        mCorrections = std::move(corrections);
    }
    // Pads the window that `lines` reads instead of the image Apply gets, which then only
    // stands for it: the window's lines go straight into the padding, with no float copy of
    // the window first.
    void ReadFrom(std::shared_ptr<const cWindowLines> lines) { mLines = std::move(lines); }

private:
    cImageDimensions mOffset;
    cImageDimensions mSize;
    cImageDimensions mPadded;
    cImageDimensions mLowBand;
    cImageDimensions mHighBand;
    std::vector<cPixelCorrectionPtr> mCorrections;
    std::shared_ptr<const cWindowLines> mLines;
};

} // namespace Ovidane
