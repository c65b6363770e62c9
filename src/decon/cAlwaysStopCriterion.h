#pragma once
#include "decon/cStopCriterion.h"

namespace Ovidane {

// Runs no pass at all: the framework goes straight from the preparation to the finish.
class cAlwaysStopCriterion : public cStopCriterion {
public:
    explicit cAlwaysStopCriterion(cCountedPtr<cDeconLog> log);

    void Initialize() override {}
    bool ShouldStop() override { return true; }
};

} // namespace Ovidane
