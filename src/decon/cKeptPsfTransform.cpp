#include "decon/cKeptPsfTransform.h"

#include "math/cFFTManager.h"

namespace Ovidane {

const cFloatImagePtr& cKeptPsfTransform::Of(const cFloatImagePtr& psf) {
    if (mSpectrum.IsNull() || mPsf != psf.Get()) {
        cFFTManager& transforms = cFFTManager::Instance();
        cImageDimensions packed;
        transforms.GetPackedDimensions(psf->GetDimensions(), packed);
        if (mSpectrum.IsNull() || !(mSpectrum->GetDimensions() == packed))
            mSpectrum = new cFloatImage(packed, Contiguous3D, "cKeptPsfTransform");
        transforms.KeepKernel(psf, mSpectrum);
        mPsf = psf.Get();
    }
    return mSpectrum;
}

} // namespace Ovidane
