#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "math/cSmallestValues.h"

using namespace Ovidane;

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

// The K-th smallest negative value by sorting them all; +infinity for fewer than K.
float SortedKth(std::vector<float> values, std::size_t k) {
    std::erase_if(values, [](float v) { return !(v < 0.0f); });
    if (values.size() < k)
        return kInf;
    std::sort(values.begin(), values.end());
    return values[k - 1];
}

} // namespace

// Shown in pieces of any size, it answers the value a full sort gives, within a room of 2K,
// through every way of thinning: by the bins of a spread of values, by sorting out exactly
// K where one bin holds them all, and where the K-th lies in the bin next to zero.
TEST(cSmallestValues, AnswersTheKthSmallestNegativeValueAsASortDoes) {
    std::mt19937 random(7);
    const auto spread = [&](std::size_t n, float low, float high) {
        std::uniform_real_distribution<float> d(low, high);
        std::vector<float> v(n);
        for (float& x : v)
            x = d(random);
        return v;
    };
    // Values that grow more negative along the stack, so the bound must come down often.
    std::vector<float> falling(20000);
    for (std::size_t i = 0; i < falling.size(); ++i)
        falling[i] = -float(i % 97) * float(i) * 0.01f + 3.0f;
    std::vector<float> special = spread(3000, -2.0f, 2.0f);
    for (std::size_t i = 0; i < special.size(); i += 7)
        special[i] = (i / 7) % 4 == 0   ? std::nanf("")
                     : (i / 7) % 4 == 1 ? -0.0f
                     : (i / 7) % 4 == 2 ? kInf
                                        : -kInf;
    std::vector<float> ties(5000, -1.0f);
    for (std::size_t i = 0; i < ties.size(); i += 3)
        ties[i] = std::nextafter(-1.0f, 0.0f);
    std::vector<float> subnormal(4000);
    for (std::size_t i = 0; i < subnormal.size(); ++i)
        subnormal[i] = -std::numeric_limits<float>::denorm_min() * float(i % 50) + (i % 3 ? 0 : 1);
    const struct {
        const char* what;
        std::vector<float> values;
    } cases[] = {
        {"a spread around zero", spread(10000, -100.0f, 50.0f)},
        {"falling", falling},
        {"NaN, -0, +infinity and -infinity among them", special},
        {"one value a hundred times over, and its neighbour", ties},
        {"subnormals next to zero", subnormal},
        {"no negative value", spread(1000, 0.0f, 5.0f)},
    };
    for (const auto& c : cases) {
        for (std::size_t k : {1u, 2u, 3u, 10u, 333u, 2000u, 50000u}) {
            for (std::size_t piece : {1u, 13u, 4096u, 1000000u}) {
                if (piece == 1 && c.values.size() > 5000)
                    continue;
                SCOPED_TRACE(::testing::Message()
                             << c.what << ", K " << k << ", pieces of " << piece);
                cSmallestValues smallest(k);
                for (std::size_t at = 0; at < c.values.size(); at += piece) {
                    smallest.Look(c.values.data() + at, std::min(piece, c.values.size() - at));
                    ASSERT_LE(smallest.Kept(), 2 * k);
                }
                const float want = SortedKth(c.values, k), got = smallest.KthSmallest();
                EXPECT_EQ(std::bit_cast<uint32_t>(got), std::bit_cast<uint32_t>(want))
                    << got << " for " << want;
            }
        }
    }
}
