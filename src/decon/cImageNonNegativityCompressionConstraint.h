#pragma once
#include "decon/cConstraint.h"

namespace Ovidane {

// Keeps an estimate non-negative without a hard clip: values below a small level are bent
// up along a parabola, the minimum landing on 0. For a transmitted-light estimate, whose
// values are an inverted brightness, the image is first raised by a pedestal; how far is
// kept for the caller to take off again.
class cImageNonNegativityCompressionConstraint : public cConstraint {
public:
    explicit cImageNonNegativityCompressionConstraint(float originalSum);

    // Refuses an original sum that isn't positive.
    void Setup() override;
    void Apply(cFloatImagePtr& image) override;

    // Replaces the original sum; a value that isn't positive is refused and the old one
    // stays.
    void SetOriginalImageSum(float value);
    float GetOriginalImageSum() const { return mOriginalSum; }

    // Set before Apply for a transmitted-light estimate.
    void SetTransmittedLight(bool transmittedLight) { mTransmittedLight = transmittedLight; }
    bool IsTransmittedLight() const { return mTransmittedLight; }
    // How far the last transmitted-light Apply raised the image (a value ≤ 0 that was
    // subtracted); 0 when it did not need to.
    float GetPedestal() const { return mPedestal; }

private:
    float mOriginalSum;
    float mPedestal = 0.0f;
    bool mTransmittedLight = false;
};

} // namespace Ovidane
