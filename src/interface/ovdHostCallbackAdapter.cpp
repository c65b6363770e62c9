#include "interface/ovdHostCallbackAdapter.h"

namespace Ovidane {

uint16_t ovdHostCallbackAdapter(ovdStructInvFilterStatus* status, void* record) {
    const auto* host = static_cast<const ovdHostCallbackRecord*>(record);
    if (!host || !host->function || !status)
        return OVD_STATUS_CONTINUE;
    // The 16-bit fields travel zero-extended, as the host's signature promises.
    return host->function(host->userData, uint16_t(status->sStage), status->fPercentDone,
                          uint16_t(status->sSubvolumeCount), uint16_t(status->sSubvolume),
                          status->fMinutesLeft);
}

} // namespace Ovidane
