#include "core/cStatusUpdateHandler.h"

#include <algorithm>

#include "core/cCancelException.h"
#include "platform/Platform.h"

namespace Ovidane {

namespace {
constexpr uint16_t kContinue = OVD_STATUS_CONTINUE;

ovdStructInvFilterStatus* NewStatusRecord() {
    auto* status = new ovdStructInvFilterStatus{};
    status->sStage = static_cast<int16_t>(kContinue);
    return status;
}
} // namespace

cStatusUpdateHandler::cStatusUpdateHandler(ovdStatusCallback callback)
    : cStatusUpdateHandler(callback, nullptr) {}

cStatusUpdateHandler::cStatusUpdateHandler(ovdStatusCallback callback, void* userData)
    : mCallback(callback), mUserData(userData), mStatus(NewStatusRecord()) {}

int64_t cStatusUpdateHandler::Now() const {
    return Platform::ProcessClockMilliseconds();
}

void cStatusUpdateHandler::StartClock() {
    Guard([&] { mStartTime = Now(); });
}

uint16_t cStatusUpdateHandler::Update(float percent, int16_t iteration, int16_t iterationCount,
                                      int16_t subvolume, int16_t subvolumeCount, int16_t stage) {
    return Guard([&]() -> uint16_t {
        mLastTime = Now();
        int64_t elapsed = mLastTime - mStartTime;
        if (iteration > 0)
            elapsed /= iteration + 1; // time per iteration, the iteration counted from 0
        percent = std::min(percent, 100.0f);

        ovdStructInvFilterStatus& status = *mStatus;
        status.fPercentDone = percent;
        status.fMinutesLeft =
            static_cast<float>((100.0f - percent) * (static_cast<double>(elapsed) / 60000.0) / 100);
        status.sIteration = iteration;
        status.sIterationCount = iterationCount;
        status.sSubvolume = subvolume;
        status.sSubvolumeCount = subvolumeCount;
        status.sStage = stage;

        // Without a callback there is nobody to ask, and the run goes on. A failure inside
        // the host's callback must not end the run: only its answer can.
        uint16_t answer = kContinue;
        if (mCallback) {
            try {
                answer = mCallback(&status, mUserData);
            } catch (...) {
                answer = kContinue;
            }
        }
        if (answer != kContinue)
            throw cCancelException();
        return kContinue;
    });
}

} // namespace Ovidane
