#pragma once
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cOvdObject.h"
// The status record and callback are the boundary format itself; the public header is a
// plain C header with no dependencies, so this is the one include of it from below.
#include "interface/ovdinf01.h"

namespace Ovidane {

// Forwards a reporter's progress to the host's callback and turns any answer other than
// "continue" (201) into a cancel. The object name stays empty: a cancel leaves Update with
// the where text "/Status Update".
class cStatusUpdateHandler : public cOvdObject {
public:
    explicit cStatusUpdateHandler(ovdStatusCallback callback);
    cStatusUpdateHandler(ovdStatusCallback callback, void* userData);

    // Starts the time estimate of one subvolume.
    void StartClock();

    // Fills the status record and calls the callback. Returns 201, or throws the cancel
    // (code 200) when the callback answers anything else. A callback that throws counts
    // as having answered 201.
    uint16_t Update(float percent, int16_t iteration, int16_t iterationCount, int16_t subvolume,
                    int16_t subvolumeCount, int16_t stage);

    const ovdStructInvFilterStatus& GetStatus() const { return *mStatus; }
    int64_t GetStartTime() const { return mStartTime; }
    int64_t GetLastTime() const { return mLastTime; }

protected:
    // The run's clock in milliseconds; tests substitute their own.
    virtual int64_t Now() const;

private:
    int64_t mStartTime = 0;
    int64_t mLastTime = 0;
    ovdStatusCallback mCallback;
    void* mUserData;
    cCountedPtr<ovdStructInvFilterStatus> mStatus;
};

} // namespace Ovidane
