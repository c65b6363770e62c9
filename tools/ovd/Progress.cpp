#include "Progress.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace ovdtool {
namespace {
volatile std::sig_atomic_t gInterrupted = 0;
void OnInterrupt(int) { gInterrupted = 1; }
} // namespace

Progress::Progress(const char* label) : mLabel(label), mTerminal(::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (mDrawn)
        std::fputc('\n', stderr);
}

void Progress::CatchInterrupt() {
    struct sigaction action {};
    action.sa_handler = &OnInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

bool Progress::Interrupted() { return gInterrupted != 0; }

uint16_t Progress::OnStatus(ovdStructInvFilterStatus* status, void* self) {
    // A one-pass method has nothing to count.
    const int iterations = status->sIterationCount > 1 ? status->sIterationCount : 0;
    return static_cast<Progress*>(self)->Show(status->fPercentDone, status->sSubvolume,
                                              status->sSubvolumeCount, status->sIteration,
                                              iterations);
}

uint16_t Progress::OnHostStatus(void* self, uint32_t, float percent, uint32_t count, uint32_t index,
                                float) {
    return static_cast<Progress*>(self)->Show(percent, int(index), int(count), 0, 0);
}

uint16_t Progress::Show(float subvolumePercent, int subvolume, int subvolumeCount, int iteration,
                        int iterations) {
    if (gInterrupted)
        return 0; // anything but "continue" cancels the run
    mSubvolumeCount = subvolumeCount;
    if (!mTerminal)
        return OVD_STATUS_CONTINUE;
    const int count = subvolumeCount > 0 ? subvolumeCount : 1;
    const int index = subvolume > 0 ? subvolume : 1;
    float percent = (float(index - 1) + subvolumePercent / 100.0f) / float(count) * 100.0f;
    percent = percent < 0 ? 0 : percent > 100 ? 100 : percent;
    const auto now = std::chrono::steady_clock::now();
    if (mDrawn && now - mLastDraw < std::chrono::milliseconds(100) && percent < 100)
        return OVD_STATUS_CONTINUE;
    mLastDraw = now;
    const double elapsed = std::chrono::duration<double>(now - mStart).count();
    const double secondsLeft = percent > 0.5f ? elapsed * (100.0 - percent) / percent : 0.0;
    constexpr int kWidth = 30;
    const int filled = int(percent / 100.0f * kWidth + 0.5f);
    char bar[kWidth + 1];
    for (int i = 0; i < kWidth; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = '\0';
    const int seconds = int(secondsLeft + 0.5);
    char passes[32] = "";
    if (iterations > 0)
        std::snprintf(passes, sizeof passes, "  iteration %d/%d", iteration, iterations);
    std::fprintf(stderr, "\r%s [%s] %5.1f%%%s  subvolume %d/%d  %d:%02d left ", mLabel, bar, percent,
                 passes, index, count, seconds / 60, seconds % 60);
    std::fflush(stderr);
    mDrawn = true;
    return OVD_STATUS_CONTINUE;
}

} // namespace ovdtool
