#include "decon/cAlwaysStopCriterion.h"

namespace Ovidane {

cAlwaysStopCriterion::cAlwaysStopCriterion(cCountedPtr<cDeconLog> log)
    : cStopCriterion(std::move(log)) {
    SetObjectName("cAlwaysStopCriterion");
}

} // namespace Ovidane
