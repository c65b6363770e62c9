#include "decon/cOriginalImageObjectFirstGuess.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cOriginalImageObjectFirstGuess::cOriginalImageObjectFirstGuess() {
    SetObjectName("cOriginalImageObjectFirstGuess");
}

void cOriginalImageObjectFirstGuess::Apply(cFloatImagePtr& /*psf*/, cFloatImagePtr& original,
                                           cFloatImagePtr& object) {
    Guard([&] {
        if (original.IsNull() || object.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        cImageMathManager::Instance().GetImageMath()->CopyImage(original, object);
    });
}

} // namespace Ovidane
