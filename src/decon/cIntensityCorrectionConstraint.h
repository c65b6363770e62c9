#pragma once
#include "decon/cPixelCorrection.h"

namespace Ovidane {

// Levels the brightness of a stack that drifts with depth: each slice is multiplied by its
// factor from a correction curve, an image with one pixel per stack slice (the factor of
// stack slice z is curve(0, 0, z)).
//
// The slice range is in stack numbering, and the image holds the stack's slices from
// firstSlice on: stack slice z is slice z − firstSlice of the image. Stack slices past the
// image's depth are not there to be corrected.
class cIntensityCorrectionConstraint : public cPixelCorrection {
public:
    cIntensityCorrectionConstraint(cFloatImagePtr curve, unsigned firstSlice, unsigned lastSlice);

    void Setup() override {}
    // Fails with a null image or curve, and when the curve has no factor for a slice of
    // the range that the image holds.
    void Apply(cFloatImagePtr& image) override;
    void CorrectLine(float* pixels, std::size_t count, uint32_t slice) const override;

private:
    cFloatImagePtr mCurve;
    unsigned mFirstSlice;
    unsigned mLastSlice;
};

} // namespace Ovidane
