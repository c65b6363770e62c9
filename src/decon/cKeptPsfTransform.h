#pragma once
#include "core/cCountedPtr.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The transform of a PSF that an iteration convolves with again and again. A non-blind
// restoration blurs with one PSF in every pass, so its spectrum is made once, at the first
// pass, in the order the transform service convolves with fastest (cFFT::KeepKernel), and
// every later convolution (cFFT::ConvolveKept) transforms only the image: two transforms
// of a convolution's three.
class cKeptPsfTransform {
public:
    // The kept spectrum of `psf`, made on the first call and again only for another PSF
    // image. A method that changes its PSF's pixels in place between passes must not use it.
    const cFloatImagePtr& Of(const cFloatImagePtr& psf);

private:
    cFloatImagePtr mSpectrum;
    const cFloatImage* mPsf = nullptr;
};

} // namespace Ovidane
