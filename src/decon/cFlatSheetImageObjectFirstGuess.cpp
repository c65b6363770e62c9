#include "decon/cFlatSheetImageObjectFirstGuess.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cFlatSheetImageObjectFirstGuess::cFlatSheetImageObjectFirstGuess() {
    SetObjectName("cFlatSheetImageObjectFirstGuess");
}

void cFlatSheetImageObjectFirstGuess::Apply(cFloatImagePtr& /*psf*/, cFloatImagePtr& original,
                                            cFloatImagePtr& object) {
    Guard([&] {
        if (original.IsNull() || object.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->SetImageToConstant(object, math->AverageImage(original));
    });
}

} // namespace Ovidane
