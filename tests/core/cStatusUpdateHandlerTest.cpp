#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "core/cCancelException.h"
#include "core/cStatusUpdateHandler.h"
#include "support/StatusHost.h"

using namespace Ovidane;
using OvidaneTest::StatusHost;

namespace {

// A handler on a clock the test moves by hand.
class cClockedHandler : public cStatusUpdateHandler {
public:
    using cStatusUpdateHandler::cStatusUpdateHandler;
    int64_t now = 0;

protected:
    int64_t Now() const override { return now; }
};

} // namespace

TEST(cStatusUpdateHandler, TimeEstimateUsesTimePerIterationInWholeMilliseconds) {
    StatusHost host;
    cClockedHandler handler(&StatusHost::Record, &host);
    handler.StartClock();
    handler.now = 120000;
    handler.Update(25.0f, 4, 10, 1, 1, 106); // a fifth of the elapsed time
    EXPECT_NEAR(host.seen.back().fMinutesLeft, 0.3f, 1e-6f);

    handler.now = 10;
    handler.Update(0.0f, 2, 10, 1, 1, 106); // 10 / 3 truncates to 3 ms
    EXPECT_FLOAT_EQ(host.seen.back().fMinutesLeft, 3.0f / 60000.0f);

    handler.now = 600000;
    handler.Update(130.0f, 0, 10, 1, 1, 136); // clamped: nothing left
    EXPECT_EQ(host.seen.back().fPercentDone, 100.0f);
    EXPECT_EQ(host.seen.back().fMinutesLeft, 0.0f);
}

TEST(cStatusUpdateHandler, AnyAnswerButContinueCancelsWithCode200) {
    for (const uint16_t answer : {200, 0, 1, 202, 65535}) {
        StatusHost host;
        host.answer = answer;
        cClockedHandler handler(&StatusHost::Record, &host);
        try {
            handler.Update(10.0f, 1, 2, 1, 1, 102);
            ADD_FAILURE() << "answer " << answer << " did not cancel";
        } catch (const cException& e) {
            EXPECT_EQ(e.GetCode(), 200);
        }
        EXPECT_EQ(host.seen.size(), 1u);
    }
}

TEST(cStatusUpdateHandler, ThrowingOrMissingCallbackLetsTheRunGoOn) {
    cClockedHandler throwing([](ovdStructInvFilterStatus*, void*) -> uint16_t {
        throw std::runtime_error("host failure");
    });
    EXPECT_EQ(throwing.Update(10.0f, 0, 1, 1, 1, 106), 201);
    cClockedHandler silent(nullptr);
    EXPECT_EQ(silent.Update(10.0f, 0, 1, 1, 1, 106), 201);
    EXPECT_EQ(silent.GetStatus().fPercentDone, 10.0f);
}
