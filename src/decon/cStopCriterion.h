#pragma once
#include <utility>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cDeconOperation.h"
// The host's callback and its status record are the boundary format itself (a plain C header).
#include "interface/ovdinf01.h"

namespace Ovidane {

// Decides when an iterative restoration has done enough passes. The framework asks before
// every pass, the first one included.
class cStopCriterion : public cDeconOperation {
public:
    explicit cStopCriterion(cCountedPtr<cDeconLog> log) : mLog(std::move(log)) {}
    ~cStopCriterion() override = default;

    virtual void Initialize() = 0;
    virtual bool ShouldStop() = 0;

    // The host's callback, for a criterion that asks the host whether to go on. Algorithms
    // hand it to whatever criterion they hold; the others keep it unused.
    void SetCallback(ovdStatusCallback callback) { mCallback = callback; }
    ovdStatusCallback GetCallback() const { return mCallback; }

protected:
    cCountedPtr<cDeconLog> mLog;
    ovdStatusCallback mCallback = nullptr;
};

using cStopCriterionPtr = cCountedPtr<cStopCriterion>;

} // namespace Ovidane
