#include "decon/cIterativeStopCriterion.h"

namespace Ovidane {

cIterativeStopCriterion::cIterativeStopCriterion(cCountedPtr<cDeconLog> log)
    : cStopCriterion(std::move(log)) {
    SetObjectName("cIterativeStopCriterion");
}

bool cIterativeStopCriterion::ShouldStop() {
    const cDeconParameter& parameters = mLog->GetParameters();
    // Equality, not "at least": a total lowered below the count already reached never
    // matches, so whoever changes the total must keep it ahead of the count.
    return parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS) ==
           parameters.GetInt(DEC_IPARAMS_CURRENT_ITERATION);
}

} // namespace Ovidane
