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
HostScript* gHost = nullptr;

uint16_t Host(ovdStructInvFilterStatus* status, void* userData) {
    ++gHost->calls;
    gHost->seen = *status;
    gHost->userData = userData;
    if (gHost->answerCount >= 0)
        status->sIterationCount = gHost->answerCount;
    return OVD_STATUS_CONTINUE;
}

class CallbackStopCriterion : public ::testing::Test {
protected:
    void SetUp() override {
        gHost = &host;
        Params().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 3);
        Params().SetInt(DEC_IPARAMS_SAVE_INTERVAL, 3);
    }
    void TearDown() override { gHost = nullptr; }
    cDeconParameter& Params() { return log->GetParameters(); }

    HostScript host;
    cCountedPtr<cDeconLog> log{new cDeconLog()};
    cIterativeCallbackStopCriterion criterion{log, Host};
};

} // namespace

TEST_F(CallbackStopCriterion, AsksTheHostOnlyWhenThePlannedPassesAreDone) {
    for (int32_t current = 0; current < 3; ++current) {
        Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, current);
        EXPECT_FALSE(criterion.ShouldStop()) << current;
    }
    EXPECT_EQ(host.calls, 0);

    // The host leaves the count as it is: the run ends, and the record it saw says where
    // the run stands, with the criterion itself as the user data.
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 3);
    EXPECT_TRUE(criterion.ShouldStop());
    EXPECT_EQ(host.calls, 1);
    EXPECT_EQ(host.seen.sIterationCount, 3);
    EXPECT_EQ(host.seen.sStage, OVD_STATUS_CONTINUE);
    EXPECT_EQ(host.seen.fPercentDone, 0.0f);
    EXPECT_EQ(host.seen.fMinutesLeft, 0.0f);
    EXPECT_EQ(host.seen.sIteration, 0);
    EXPECT_EQ(host.seen.sSubvolume, 0);
    EXPECT_EQ(host.seen.sSubvolumeCount, 0);
    EXPECT_EQ(host.userData, static_cast<void*>(&criterion));
}

TEST_F(CallbackStopCriterion, ASmallerCountStopsAtOnceAndChangesNothing) {
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 3);
    host.answerCount = 1;
    EXPECT_TRUE(criterion.ShouldStop());
    EXPECT_EQ(Params().GetInt(DEC_IPARAMS_TOTAL_ITERATIONS), 3);
    EXPECT_EQ(Params().GetInt(DEC_IPARAMS_SAVE_INTERVAL), 3);
}

TEST_F(CallbackStopCriterion, ALargerCountExtendsTheRunAndASaveIntervalOfTheWholeRun) {
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 3);
    host.answerCount = 5;
    EXPECT_FALSE(criterion.ShouldStop());
    EXPECT_EQ(Params().GetInt(DEC_IPARAMS_TOTAL_ITERATIONS), 5);
    EXPECT_EQ(Params().GetInt(DEC_IPARAMS_SAVE_INTERVAL), 5);

    // Two more passes, then the host is asked again; a record left over from the first
    // question must not carry its answer into the second.
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 4);
    EXPECT_FALSE(criterion.ShouldStop());
    EXPECT_EQ(host.calls, 1);
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 5);
    host.answerCount = -1;
    EXPECT_TRUE(criterion.ShouldStop());
    EXPECT_EQ(host.calls, 2);
    EXPECT_EQ(host.seen.sIterationCount, 5);

    // A save interval other than the whole run is kept as it is.
    cCountedPtr<cDeconLog> other(new cDeconLog());
    other->GetParameters().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 4);
    other->GetParameters().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 4);
    other->GetParameters().SetInt(DEC_IPARAMS_SAVE_INTERVAL, 2);
    cIterativeCallbackStopCriterion second(other, Host);
    host.answerCount = 8;
    EXPECT_FALSE(second.ShouldStop());
    EXPECT_EQ(other->GetParameters().GetInt(DEC_IPARAMS_TOTAL_ITERATIONS), 8);
    EXPECT_EQ(other->GetParameters().GetInt(DEC_IPARAMS_SAVE_INTERVAL), 2);
}

TEST_F(CallbackStopCriterion, WithoutACallbackItStopsLikeThePlainCount) {
    cIterativeCallbackStopCriterion silent(log);
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 2);
    EXPECT_FALSE(silent.ShouldStop());
    Params().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 3);
    EXPECT_TRUE(silent.ShouldStop());

    // A callback handed in later, as the algorithms do, is asked.
    silent.SetCallback(Host);
    host.answerCount = 4;
    EXPECT_FALSE(silent.ShouldStop());
    EXPECT_EQ(host.calls, 1);
}
