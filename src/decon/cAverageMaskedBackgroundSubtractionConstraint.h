#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Takes as background of a PSF the mean of the pixels outside a mask, where the mask is 0
// (outside the hourglass that the PSF's light can reach), and subtracts it. The mask comes
// from the hourglass constraint of the same PSF and may still be empty of content when it
// is handed over; it must be drawn by the time Apply runs.
class cAverageMaskedBackgroundSubtractionConstraint : public cConstraint {
public:
    cAverageMaskedBackgroundSubtractionConstraint();

    // Stores the mask; a null one empties the field.
    void SetMask(const cFloatImagePtr& mask) { mMask = mask; }
    const cFloatImagePtr& GetMask() const { return mMask; }

    void Setup() override {}
    void Apply(cFloatImagePtr& image) override;

private:
    cFloatImagePtr mMask;
};

} // namespace Ovidane
