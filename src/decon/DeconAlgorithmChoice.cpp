#include "decon/DeconAlgorithmChoice.h"

#include "decon/cGoldsDeconAlgorithm.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "decon/cMlem2DBlindDeconAlgorithm.h"
#include "decon/cMlem2DNonBlindDeconAlgorithm.h"
#include "decon/cMlemNonBlindDeconAlgorithm.h"

namespace Ovidane {

cDeconAlgorithmPtr MakeDeconAlgorithm(const cCountedPtr<cDeconLog>& log, cRestorationKind kind) {
    switch (kind) {
    case cRestorationKind::Plane:
        return new cMlem2DNonBlindDeconAlgorithm(log);
    case cRestorationKind::BlindPlane:
        return new cMlem2DBlindDeconAlgorithm(log, false);
    case cRestorationKind::ByLogMethod:
        break;
    }
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

uint32_t ExtraWorkingImages(const cDeconParameter& p, cRestorationKind kind) {
    // The object beside the original, the acceleration's working images (reblurred
    // estimate, factor and new estimate; three work images; the extrapolation's last
    // object and gradient), the image of Good's step and the kept PSF transform.
    constexpr uint32_t kMlem = 9;
    switch (kind) {
    case cRestorationKind::Plane:
        return kMlem;
    case cRestorationKind::BlindPlane:
        // The PSF's working image and the transform of the estimate held still, in place of
        // the kept PSF transform.
        return kMlem + 1;
    case cRestorationKind::ByLogMethod:
        break;
    }
    switch (p.GetFlag(DEC_FPARAMS_DECON_METHOD)) {
    case DEC_FLAG_DM_EXPECTATION_MAX:
    case DEC_FLAG_DM_POWER_ACCEL:
    case DEC_FLAG_DM_EXTRAPOLATION_ACCEL:
        return kMlem;
    case DEC_FLAG_DM_GOLDS:
        // The object beside the original, the ratio image, the smoothing kernel and its
        // transform.
        return 4;
    default:
        return 0;
    }
}

} // namespace Ovidane
