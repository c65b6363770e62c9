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
        if (mKept.IsNull()) {
            mGuess->Apply(psf, original);
            CopyInto(psf, mKept);
            return;
        }
        CopyInto(mKept, psf);
    });
}

bool cSharedPsfFirstGuess::TakePrepared(cFloatImagePtr& psf, bool readOnly) {
    return Guard([&] {
        if (mPrepared.IsNull())
            return mGuess->TakePrepared(psf, readOnly);
        if (readOnly) {
            mPrepared->Freeze();
            psf = mPrepared;
        } else {
            CopyInto(mPrepared, psf);
        }
        return true;
    });
}

void cSharedPsfFirstGuess::KeepPrepared(const cFloatImagePtr& psf, bool readOnly) {
    Guard([&] {
        if (psf.IsNull())
            Fail("NULL input image in KeepPrepared", OVD_ERR_PARAMETER);
        if (readOnly) {
            psf->Freeze();
            mPrepared = psf;
        } else {
            mPrepared = cFloatImagePtr();
            CopyInto(psf, mPrepared);
        }
        mKept = cFloatImagePtr();
        mGuess->KeepPrepared(psf, readOnly);
    });
}

void cSharedPsfFirstGuess::CopyInto(const cFloatImagePtr& source, cFloatImagePtr& target) const {
    if (target.IsNull())
        target = new cOvdImage<float>(source->GetDimensions(), GetObjectName());
    if (!(target->GetDimensions() == source->GetDimensions()))
        Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
    cImageMathManager::Instance().GetImageMath()->CopyImage(source, target);
}

} // namespace Ovidane
