#include <gtest/gtest.h>

#include "core/cDeconLog.h"
#include "decon/cIterativeCallbackStopCriterion.h"

using namespace Ovidane;

namespace {

// What the host saw, and what it answers: a new iteration count, or -1 to leave the record.
struct HostScript {
    int calls = 0;
    ovdStructInvFilterStatus seen{};
    void* userData = nullptr;
    int16_t answerCount = -1;
};
HostScript gHost;

uint16_t Host(ovdStructInvFilterStatus* status, void* userData) {
    ++gHost.calls;
    gHost.seen = *status;
    gHost.userData = userData;
    if (gHost.answerCount >= 0)
        status->sIterationCount = gHost.answerCount;
    return OVD_STATUS_CONTINUE;
}

cCountedPtr<cDeconLog> LogAt(int32_t total, int32_t current, int32_t saveInterval) {
    cCountedPtr<cDeconLog> log(new cDeconLog());
    log->GetParameters().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, total);
    log->GetParameters().SetInt(DEC_IPARAMS_CURRENT_ITERATION, current);
    log->GetParameters().SetInt(DEC_IPARAMS_SAVE_INTERVAL, saveInterval);
    return log;
}

} // namespace

TEST(cIterativeCallbackStopCriterion, ALargerCountExtendsTheRunAndASaveIntervalOfTheWholeRun) {
    gHost = HostScript{};
    cCountedPtr<cDeconLog> log = LogAt(3, 3, 3);
    cIterativeCallbackStopCriterion criterion(log, Host);
    gHost.answerCount = 5;
    EXPECT_FALSE(criterion.ShouldStop());
    EXPECT_EQ(log->GetParameters().GetInt(DEC_IPARAMS_TOTAL_ITERATIONS), 5);
    EXPECT_EQ(log->GetParameters().GetInt(DEC_IPARAMS_SAVE_INTERVAL), 5);

    // Asked again at the new end, the host finds the new total in a fresh record.
    log->GetParameters().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 5);
    gHost.answerCount = -1;
    EXPECT_TRUE(criterion.ShouldStop());
    EXPECT_EQ(gHost.seen.sIterationCount, 5);

    // A save interval other than the whole run is kept.
    cCountedPtr<cDeconLog> other = LogAt(4, 4, 2);
    cIterativeCallbackStopCriterion second(other, Host);
    gHost.answerCount = 8;
    EXPECT_FALSE(second.ShouldStop());
    EXPECT_EQ(other->GetParameters().GetInt(DEC_IPARAMS_TOTAL_ITERATIONS), 8);
    EXPECT_EQ(other->GetParameters().GetInt(DEC_IPARAMS_SAVE_INTERVAL), 2);
}
