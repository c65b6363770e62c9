#pragma once
#include "decon/cEstimate.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Estimates the regularisation of the inverse filter from one plane of the image and one
// plane of the PSF (in practice their sums along z). Both are compared by their radial power
// spectra: the image's spectrum falls from the signal to a noise floor, and the PSF's power
// at the frequency where the image's power has come down to twice that floor is the
// estimate. A noisy image reaches its floor early, where the PSF is still strong, and so
// gets a large value; the estimate is held between 1e-6 and 0.001.
class cWienerKEstimate : public cEstimate {
public:
    // Takes the two planes only when both have exactly one plane and all spacings are
    // positive; otherwise the estimate has nothing to work on.
    cWienerKEstimate(const cFloatImagePtr& image, const cFloatImagePtr& psf, float spacingX,
                     float spacingY, float spacingZ);

    void Initialize() override {}
    // Needs a transform instance of the planes' x and y size on the calling thread.
    void Estimate() override;
    float GetValue() const { return mEstimate; }

    static constexpr float kSmallest = 1e-6f;
    static constexpr float kLargest = 0.001f;

private:
    cFloatImagePtr mImage;
    cFloatImagePtr mPsf;
    float mSpacing[3] = {1.0f, 1.0f, 1.0f};
    float mEstimate = 0.0f;
};

} // namespace Ovidane
