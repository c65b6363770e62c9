#include "decon/cIterativeCallbackStopCriterion.h"

namespace Ovidane {

cIterativeCallbackStopCriterion::cIterativeCallbackStopCriterion(cCountedPtr<cDeconLog> log,
                                                                 ovdStatusCallback callback)
    : cStopCriterion(std::move(log)) {
    SetObjectName("cIterativeCallbackStopCriterion");
    SetCallback(callback);
}

bool cIterativeCallbackStopCriterion::ShouldStop() {
    cDeconParameter& parameters = mLog->GetParameters();
    const int32_t total = parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS);
    if (total != parameters.GetInt(DEC_IPARAMS_CURRENT_ITERATION))
        return false;
    // Nobody to ask: the planned passes are all there is.
    if (!mCallback)
        return true;

    if (mStatus.IsNull())
        mStatus = cCountedPtr<ovdStructInvFilterStatus>(new ovdStructInvFilterStatus{});
    ovdStructInvFilterStatus& status = *mStatus;
    status = ovdStructInvFilterStatus{};
    status.sIterationCount = static_cast<int16_t>(total);
    status.sStage = OVD_STATUS_CONTINUE;

    // Asking the host must not end the run by itself: a callback that throws leaves the
    // record as it stands and the answer is read from that.
    try {
        mCallback(&status, this);
    } catch (...) {
    }

    const int32_t requested = status.sIterationCount;
    if (requested <= total)
        return true;
    // The host wants more passes. A save interval equal to the old total meant "save when
    // the run ends"; it moves with the total so that it keeps meaning that.
    if (parameters.GetInt(DEC_IPARAMS_SAVE_INTERVAL) == total)
        parameters.SetInt(DEC_IPARAMS_SAVE_INTERVAL, requested);
    parameters.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, requested);
    return false;
}

} // namespace Ovidane
