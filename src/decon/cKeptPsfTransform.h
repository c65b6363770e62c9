#pragma once
#include "core/cCountedPtr.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The transform of a PSF that an iteration convolves with again and again. A non-blind
// restoration blurs with one PSF in every pass, so its half spectrum is made once, at the
// first pass, and every later convolution transforms only the image: two transforms of a
// convolution's three. Convolving with the kept transform gives the same pixels, bit for
// bit, as convolving with the PSF itself.
class cKeptPsfTransform {
public:
    // The half spectrum of `psf`, made on the first call and again only for another PSF
    // image. A method that changes its PSF's pixels in place between passes must not use it.
    const cFloatImagePtr& Of(const cFloatImagePtr& psf);

private:
    cFloatImagePtr mSpectrum;
    const cFloatImage* mPsf = nullptr;
};

} // namespace Ovidane
