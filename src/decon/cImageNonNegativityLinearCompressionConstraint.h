#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Keeps a restored image non-negative at the total of the raw data. A few negative pixels,
// up to 2 percent of the image, are ringing that is left alone. With more, the image is
// raised by a pedestal, clipped at 0 and scaled back to the original sum.
class cImageNonNegativityLinearCompressionConstraint : public cConstraint {
public:
    // The share of negative pixels that is left alone.
    static constexpr float kToleratedNegativeShare = 0.02f;

    explicit cImageNonNegativityLinearCompressionConstraint(float originalSum);

    // Refuses an original sum that isn't positive.
    void Setup() override;
    void Apply(cFloatImagePtr& image) override;

    float GetOriginalImageSum() const { return mOriginalSum; }

private:
    float mOriginalSum;
};

} // namespace Ovidane
