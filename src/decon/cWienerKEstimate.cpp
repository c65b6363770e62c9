#include "decon/cWienerKEstimate.h"

#include <algorithm>
#include <vector>

#include "core/cCountedArray.h"
#include "core/cException.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

// Averages each ring of the power spectrum with its two neighbours. The first ring stays
// as it is, the second is averaged with the third only, and the last stays as well.
std::vector<float> SmoothedProfile(const std::vector<float>& p, uint32_t bins) {
    std::vector<float> s(p.size(), 0.0f);
    s[0] = p[0];
    s[1] = (p[2] + p[1]) * 0.5f;
    s[bins - 1] = p[bins - 1];
    for (uint32_t i = 2; i + 1 < bins; ++i)
        s[i] = (p[i - 1] + p[i] + p[i + 1]) / 3.0f;
    return s;
}

} // namespace

cWienerKEstimate::cWienerKEstimate(const cFloatImagePtr& image, const cFloatImagePtr& psf,
                                   float spacingX, float spacingY, float spacingZ) {
    const bool spacingsValid = spacingX > 0 && spacingY > 0 && spacingZ > 0;
    const bool planes =
        !image.IsNull() && !psf.IsNull() && image->GetSizeZ() == 1 && psf->GetSizeZ() == 1;
    if (!spacingsValid || !planes)
        return;
    mImage = image;
    mPsf = psf;
    mSpacing[0] = spacingX;
    mSpacing[1] = spacingY;
    mSpacing[2] = spacingZ;
    SetObjectName("cWienerKEstimate");
}

void cWienerKEstimate::Estimate() {
    Guard([&] {
        if (mImage.IsNull() || mPsf.IsNull())
            Fail("NULL input image in Estimate", OVD_ERR_PARAMETER);
        if (!mImage->HasSameSliceSize(*mPsf))
            Fail("Invalid Dimensions in Estimate", OVD_ERR_PARAMETER);

        // Rings one frequency step of the shorter side wide, reaching about to the corner
        // of the spectrum (1.41 ≈ √2, halved because the spectrum wraps around).
        const uint32_t shorter = std::min(mImage->GetSizeX(), mImage->GetSizeY());
        const uint32_t bins = static_cast<uint32_t>(static_cast<float>(shorter) * 1.41f) >> 1;
        if (bins < 2) {
            // A plane this small has no spectrum to speak of: regularise as strongly as the
            // estimate ever does.
            mEstimate = kLargest;
            return;
        }

        cFFTManager& transforms = cFFTManager::Instance();
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const cFloatImagePtr re(new cOvdImage<float>(mImage->GetDimensions(), mObjectName));
        const cFloatImagePtr im(new cOvdImage<float>(mImage->GetDimensions(), mObjectName));
        cCountedArray<float> imagePower = MakeCountedArray<float>(bins + 1, 0.0f);
        cCountedArray<float> psfPower = MakeCountedArray<float>(bins + 1, 0.0f);
        transforms.FFTFwd(mImage, cFloatImagePtr(), re, im);
        math->CalculateRadialProfile(re, im, imagePower);
        transforms.FFTFwd(mPsf, cFloatImagePtr(), re, im);
        math->CalculateRadialProfile(re, im, psfPower);

        const std::vector<float> image = SmoothedProfile(*imagePower, bins);
        const std::vector<float> psf = SmoothedProfile(*psfPower, bins);

        // The noise region starts where the PSF has lost all but a millionth of its power;
        // a PSF that never falls so low leaves the outer part of the rings to the noise.
        uint32_t noiseStart = static_cast<uint32_t>(static_cast<float>(bins) / 1.41f);
        for (uint32_t i = 1; i < bins; ++i)
            if (psf[i] / psf[0] < 1e-6f) {
                noiseStart = i;
                break;
            }
        float floor = 0.0f;
        for (uint32_t i = noiseStart; i < bins; ++i)
            floor = std::max(floor, image[i]);

        // The rings where the image stands clearly above its noise; wherever they lie, their
        // number marks the ring whose PSF power is the estimate.
        uint32_t above = 0;
        for (uint32_t i = 0; i < bins; ++i)
            if (image[i] >= 2.0f * floor)
                ++above;
        above = std::max(above, 1u);

        float estimate = psf[above - 1];
        if (estimate < kSmallest)
            estimate = kSmallest;
        if (estimate > kLargest)
            estimate = kLargest;
        mEstimate = estimate;
    });
}

} // namespace Ovidane
