#include "decon/DeconAlgorithmChoice.h"

#include "decon/cGoldsDeconAlgorithm.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "decon/cMlemNonBlindDeconAlgorithm.h"

namespace Ovidane {

cDeconAlgorithmPtr MakeDeconAlgorithm(const cCountedPtr<cDeconLog>& log) {
    switch (log->GetParameters().GetFlag(DEC_FPARAMS_DECON_METHOD)) {
    case DEC_FLAG_DM_EXPECTATION_MAX:
    case DEC_FLAG_DM_POWER_ACCEL:
    case DEC_FLAG_DM_EXTRAPOLATION_ACCEL:
        return new cMlemNonBlindDeconAlgorithm(log);
    case DEC_FLAG_DM_GOLDS:
        return new cGoldsDeconAlgorithm(log);
    default:
        return new cInverseFilterDeconAlgorithm(log);
    }
}

uint32_t ExtraWorkingImages(const cDeconParameter& p) {
    switch (p.GetFlag(DEC_FPARAMS_DECON_METHOD)) {
    case DEC_FLAG_DM_EXPECTATION_MAX:
    case DEC_FLAG_DM_POWER_ACCEL:
    case DEC_FLAG_DM_EXTRAPOLATION_ACCEL:
        // The object beside the original, the acceleration's working images (reblurred
        // estimate, factor and new estimate; three work images; the extrapolation's last
        // object and gradient), Good's two images and the kept PSF transform.
        return 10;
    case DEC_FLAG_DM_GOLDS:
        // The object beside the original, the ratio image, the smoothing kernel and its
        // transform.
        return 4;
    default:
        return 0;
    }
}

} // namespace Ovidane
