#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "largevolume/cImageStatistics.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// Runs statistics over flat slices with the given means and answers the correction.
std::vector<float> CorrectionOf(const std::vector<float>& means) {
    const uint32_t d = uint32_t(means.size());
    cImageStatistics statistics(2, 2, d);
    for (uint32_t z = 0; z < d; ++z) {
        cFloatImagePtr slice = Constant({2, 2, 1}, means[z]);
        EXPECT_EQ(statistics.Process(slice, z), 0);
    }
    EXPECT_EQ(statistics.Finish(), 0);
    return Pixels(statistics.GetCorrectionProfile());
}

void ExpectNear(const std::vector<float>& got, const std::vector<double>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i)
        EXPECT_NEAR(got[i], want[i], 2e-6 * std::abs(want[i])) << "slice " << i;
}

} // namespace

TEST(cImageStatistics, CorrectionLevelsADecayingStack) {
    const auto decay = [](double q) {
        std::vector<float> means;
        for (int z = 0; z < 8; ++z)
            means.push_back(float(1000.0 * std::pow(q, z)));
        return means;
    };
    // Brightness falling by 1% a slice: the ends lie within 5% of their neighbours' mean
    // and stay; the 1-2-1 smoothing of a geometric series gives the slices between the
    // factor (q + 2 + 1/q) / 4, slightly above 1, except slice d - 3, which isn't smoothed.
    double q = 0.99;
    double inner = (q + 2 + 1 / q) / 4;
    ExpectNear(CorrectionOf(decay(q)), {1, inner, inner, inner, inner, 1, inner, 1});

    // Falling by 3% a slice, both ends lie about 6% off their three neighbours' mean and
    // take it; the slices next to them lean on the new end values.
    q = 0.97;
    inner = (q + 2 + 1 / q) / 4;
    const double first = (q + q * q + q * q * q) / 3;                // new T0 / P0
    const double last = (1 / q + 1 / (q * q) + 1 / (q * q * q)) / 3; // new T7 / P7
    ExpectNear(CorrectionOf(decay(q)), {first, (2 + first / q + q) / 4, inner, inner, inner, 1,
                                        (2 + 1 / q + last * q) / 4, last});
}

TEST(cImageStatistics, CorrectionOfEndSlicesAndShortStacks) {
    // Fewer than four slices: nothing to level, whatever the means.
    for (const std::vector<float>& means :
         {std::vector<float>{5}, std::vector<float>{5, 50}, std::vector<float>{5, 50, 500}})
        EXPECT_EQ(CorrectionOf(means), std::vector<float>(means.size(), 1.0f));

    // An end slice 4% off its neighbours stays; 6% off, it takes their mean.
    ExpectNear(CorrectionOf({104, 100, 100, 100, 100, 100}), {1, 101.0 / 100, 1, 1, 1, 1});
    ExpectNear(CorrectionOf({100, 100, 100, 100, 100, 94}), {1, 1, 1, 1, 1, 100.0 / 94});

    // Four slices: only the end rules apply, and the second of the two inner slices sees
    // the first one's new value.
    const double t1 = 0.25 * (2 * 110 + 100 + 90);
    const double t2 = 0.25 * (2 * 90 + t1 + 100);
    ExpectNear(CorrectionOf({100, 110, 90, 100}), {1, t1 / 110, t2 / 90, 1});
}
