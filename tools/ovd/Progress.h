#pragma once
// The progress line on a terminal, and the Ctrl-C that cancels a run through the library's
// status callback.
#include <chrono>
#include <cstdint>

#include "interface/ovdinf01.h"

namespace ovdtool {

class Progress {
public:
    explicit Progress(const char* label);
    ~Progress(); // ends the line it drew

    // The library's record-form callback; user data is the Progress.
    static uint16_t OVD_CALL OnStatus(ovdStructInvFilterStatus* status, void* self);
    // The argument-list form's callback, for detection.
    static uint16_t OVD_CALL OnHostStatus(void* self, uint32_t stage, float percent,
                                          uint32_t count, uint32_t index, float minutesLeft);

    // Installs the SIGINT handler that turns Ctrl-C into a cancel of the running call.
    static void CatchInterrupt();
    static bool Interrupted();

    // The subvolumes of the cut, as the library last reported them; 0 before any report.
    int SubvolumeCount() const { return mSubvolumeCount; }

private:
    // `percent` is the progress of subvolume `subvolume` alone, as the library reports it;
    // the line shows the whole run's, and the time left that the run's pace so far gives.
    // An iteration count of 0 shows no pass counter.
    uint16_t Show(float percent, int subvolume, int subvolumeCount, int iteration, int iterations);

    const char* mLabel;
    bool mTerminal;
    bool mDrawn = false;
    int mSubvolumeCount = 0;
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mLastDraw{};
};

} // namespace ovdtool
