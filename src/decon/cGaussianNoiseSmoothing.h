#pragma once
#include <cstdint>

#include "decon/cNoiseSmoothing.h"

namespace Ovidane {

// A Gaussian blur of the estimate, every `interval`-th pass (or once, before the passes),
// with negative values removed afterwards. The width is a full width at half maximum in
// units of the spacing given, which the algorithms set to (1, 1, z/x spacing ratio) so that
// the width counts in lateral pixels.
//
// The kernel's transform is made once, in Initialize, so a smoothing costs one forward and
// one inverse transform. An interval of 0 or a width that isn't positive means no smoothing
// at all: Apply then leaves the image as it is.
class cGaussianNoiseSmoothing : public cNoiseSmoothing {
public:
    cGaussianNoiseSmoothing(float spacingX, float spacingY, float spacingZ, float width,
                            uint32_t interval);

    // Needs a transform instance of `size` on the calling thread.
    void Initialize(const cImageDimensions& size) override;
    void Apply(cFloatImagePtr& image, uint32_t iteration) override;

    bool Smooths() const { return mInterval > 0 && mWidth > 0.0f; }
    uint32_t GetInterval() const { return mInterval; }
    float GetWidth() const { return mWidth; }

private:
    cImageDimensions mSize{1, 1, 1};
    // The kernel itself is needed only to make its transform.
    cFloatImagePtr mTransferFunction;
    float mSpacing[3];
    float mWidth;
    uint32_t mInterval;
};

} // namespace Ovidane
