#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "core/cWorkerThreads.h"
#include "largevolume/cStackNonNegativity.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

constexpr float kShare = 0.02f;

// The limits of the search's steps for a stack whose smallest value is `minimum`.
std::vector<float> Limits(float minimum) {
    std::vector<float> limits;
    for (double step = 0.9f * double(minimum); limits.size() < 2 || step <= -1.0; step *= 0.9f)
        limits.push_back(static_cast<float>(step));
    return limits;
}

} // namespace

// The K smallest values kept from the first look choose the pedestal and the scale the
// second look's counts choose, bit for bit, with pixels lying exactly on the steps, whether
// one thread keeps them or several share the look.
TEST(cStackNonNegativity, TheFirstLookAloneChoosesThePedestalTheCountsChoose) {
    std::mt19937 random(11);
    const cImageDimensions size{100, 40, 10}; // 40000 pixels: K = 800
    const auto stack = [&](const std::function<float(std::size_t)>& value) {
        std::size_t i = 0;
        return MakeImage(size, [&](uint32_t, uint32_t, uint32_t) { return value(i++); });
    };
    std::normal_distribution<float> noise(5.0f, 10.0f);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    // 601 pixels below the fourth step, 400 on it: the share is reached at the fifth step
    // only because a pixel on a step is not below it.
    const std::vector<float> limits = Limits(-100.0f);
    const auto onTheSteps = [&](std::size_t i) {
        if (i == 0)
            return -100.0f;
        if (i <= 600)
            return (limits[2] + limits[3]) / 2;
        if (i <= 1000)
            return limits[3];
        return i < 1600 ? -0.5f : 3.0f;
    };
    const struct {
        const char* what;
        cFloatImagePtr image;
    } cases[] = {
        {"ringing: noise with deep negative spikes", stack([&](std::size_t) {
             return unit(random) < 0.01f ? -5000.0f * unit(random) : noise(random);
         })},
        {"just over the share negative",
         stack([&](std::size_t i) { return i % 40 == 0 ? -50.0f * unit(random) : 10.0f; })},
        {"every pixel negative", stack([&](std::size_t) { return -1.0f - 300.0f * unit(random); })},
        {"pixels on the steps", stack(onTheSteps)},
        {"nothing below -1", stack([&](std::size_t i) { return i % 10 == 0 ? -0.9f : 1.0f; })},
    };
    for (int threads : {1, 3})
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + ", threads " + std::to_string(threads));
            cWorkerThreads::SetCount(threads);
            const float sum = static_cast<float>(Sum(c.image)) + 1e6f;
            cStackNonNegativity kept(sum, kShare, double(size.Voxels()));
            cStackNonNegativity counted(sum, kShare, double(size.Voxels()), 0);
            kept.FirstLook(c.image);
            counted.FirstLook(c.image);
            ASSERT_TRUE(kept.NeedsPedestal());
            ASSERT_TRUE(counted.NeedsPedestal());
            EXPECT_FALSE(kept.NeedsSecondLook());
            ASSERT_TRUE(counted.NeedsSecondLook());
            counted.SecondLook(c.image);
            EXPECT_EQ(kept.GetPedestal(), counted.GetPedestal());
            EXPECT_EQ(kept.GetScale(), counted.GetScale());
            EXPECT_LT(kept.GetPedestal(), 0.0);
        }
    cWorkerThreads::SetCount(0);
}
