#pragma once
#include "decon/cStopCriterion.h"

namespace Ovidane {

// Stops like cIterativeStopCriterion, but when the planned passes are done it first asks the
// host: the callback gets a status record with the total in sIterationCount and stage 201,
// and may raise that count to have the run go on. A larger count becomes the new total
// (and the new save interval, when the interval was the whole run).
class cIterativeCallbackStopCriterion : public cStopCriterion {
public:
    explicit cIterativeCallbackStopCriterion(cCountedPtr<cDeconLog> log,
                                             ovdStatusCallback callback = nullptr);

    void Initialize() override {}
    bool ShouldStop() override;

private:
    cCountedPtr<ovdStructInvFilterStatus> mStatus;
};

} // namespace Ovidane
