#include "decon/cSharedPsfFirstGuess.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cSharedPsfFirstGuess::cSharedPsfFirstGuess(cPsfFirstGuessPtr guess)
    : cPsfFirstGuess("cSharedPsfFirstGuess"), mGuess(std::move(guess)) {}

void cSharedPsfFirstGuess::SetFileName(const std::string& name) {
    mGuess->SetFileName(name);
}

void cSharedPsfFirstGuess::Apply(cFloatImagePtr& psf, cFloatImagePtr& original) {
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        if (mKept.IsNull()) {
            mGuess->Apply(psf, original);
            mKept = new cOvdImage<float>(psf->GetDimensions(), GetObjectName());
            math->CopyImage(psf, mKept);
            return;
        }
        if (psf.IsNull())
            psf = new cOvdImage<float>(mKept->GetDimensions(), GetObjectName());
        if (!(psf->GetDimensions() == mKept->GetDimensions()))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
        math->CopyImage(mKept, psf);
    });
}

} // namespace Ovidane
