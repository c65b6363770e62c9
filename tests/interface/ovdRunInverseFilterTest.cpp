#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "HostCallFixture.h"
#include "core/DeconKeys.h"
#include "interface/ovdDerivation.h"
#include "interface/ovdHostCallbackAdapter.h"
#include "interface/ovdRunSetup.h"

using namespace Ovidane;

TEST(RunSetUp, NoiseFactorSelectsALevelInSinglePrecisionAndEachLevelItsClass) {
    ovdStructInvFilterOpsExp exp;
    ovdInitStructInvFilterOpsExp(&exp);
    // The default is the low class; a factor of no class carries its own value (4).
    const std::pair<float, int> levels[] = {
        {exp.fNoiseFactor, 1}, {0.0f, 0}, {1e-7f, 0}, {2e-4f, 2}, {2e-3f, 3},
        {2.0001e-5f, 4},       {0.01f, 4}};
    for (const auto& [factor, level] : levels)
        EXPECT_EQ(ovdNoiseLevelOfFactor(factor), level) << factor;

    // Each level becomes its class in the run's parameters.
    HostCall call;
    call.image.nDataType = OVD_DATATYPE_FLOAT32;
    ovdRunArguments a =
        ovdDeriveFromRecords(call.image, &call.psfIn, &call.psfOut, call.std, call.exp);
    const int32_t expected[] = {DEC_FLAG_NOISE_LEVEL_ESTIMATE, DEC_FLAG_NOISE_LEVEL_LOW,
                                DEC_FLAG_NOISE_LEVEL_MEDIUM, DEC_FLAG_NOISE_LEVEL_HIGH};
    for (uint16_t level = 0; level < 4; ++level) {
        a.noiseLevel = level;
        a.noiseFactor = 0.5f;
        ovdRunState state;
        ASSERT_EQ(ovdSetUpInverseFilterRun(a, state), 0);
        cDeconParameter& p = state.log->GetParameters();
        EXPECT_EQ(p.GetFlag(DEC_FPARAMS_NOISE_LEVEL), expected[level]);
        EXPECT_EQ(p.GetReal(DEC_RPARAMS_GOODS_FACTOR), 0.0f); // only the value-carrying level
    }
}

namespace {
struct HostSeen {
    void* user = nullptr;
    uint32_t stage = 0, count = 0, index = 0;
    float percent = 0, minutes = 0;
};
uint16_t RecordingHost(void* user, uint32_t stage, float percent, uint32_t count, uint32_t index,
                       float minutes) {
    auto* seen = static_cast<HostSeen*>(user);
    *seen = HostSeen{user, stage, count, index, percent, minutes};
    return 7;
}
} // namespace

TEST(HostCallbackAdapter, ForwardsInHostOrderZeroExtendedAndPassesTheAnswer) {
    HostSeen seen;
    ovdHostCallbackRecord record{&RecordingHost, &seen};
    ovdStructInvFilterStatus status{42.5f, 3.25f, 2, 5, 3, -1, 136};
    EXPECT_EQ(ovdHostCallbackAdapter(&status, &record), 7);
    EXPECT_EQ(seen.user, &seen);
    EXPECT_EQ(seen.stage, 136u);
    EXPECT_EQ(seen.index, 3u);
    EXPECT_EQ(seen.count, 65535u); // a negative 16-bit count arrives zero-extended
    EXPECT_FLOAT_EQ(seen.percent, 42.5f);
    EXPECT_FLOAT_EQ(seen.minutes, 3.25f);

    ovdHostCallbackRecord noFunction{nullptr, &seen};
    EXPECT_EQ(ovdHostCallbackAdapter(&status, &noFunction), OVD_STATUS_CONTINUE);
    EXPECT_EQ(ovdHostCallbackAdapter(&status, nullptr), OVD_STATUS_CONTINUE);
}
