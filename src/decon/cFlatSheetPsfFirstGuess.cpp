#include "decon/cFlatSheetPsfFirstGuess.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cFlatSheetPsfFirstGuess::cFlatSheetPsfFirstGuess() {
    SetObjectName("cFlatSheetPsfFirstGuess");
}

void cFlatSheetPsfFirstGuess::Apply(cFloatImagePtr& psf, cFloatImagePtr& original) {
    Guard([&] {
        if (!original)
            Fail("NULL input image in FlatSheetPsfFirstGuess", OVD_ERR_PARAMETER);
        if (!psf)
            psf = cFloatImagePtr(new cOvdImage<float>(original->GetDimensions(), GetObjectName()));
        cImageMathManager::Instance().GetImageMath()->SetImageToConstant(psf, 1.0f);
    });
}

} // namespace Ovidane
