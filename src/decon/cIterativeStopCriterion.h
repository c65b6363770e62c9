#pragma once
#include "decon/cStopCriterion.h"

namespace Ovidane {

// Stops once the log's current iteration has reached its total: DEC_IPARAMS_TOTAL_ITERATIONS
// passes, counted by the framework in DEC_IPARAMS_CURRENT_ITERATION.
class cIterativeStopCriterion : public cStopCriterion {
public:
    explicit cIterativeStopCriterion(cCountedPtr<cDeconLog> log);

    void Initialize() override {}
    bool ShouldStop() override;
};

} // namespace Ovidane
