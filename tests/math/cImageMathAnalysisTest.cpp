#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "math/cImageMathGeneric.h"
#include "math/cImageMathHighway.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

// Even sizes are checked against numpy; on odd sizes the centre pixel of a centred stack
// lands on the origin, in place through the work image as well.
TEST(cImageMathAnalysis, FFTShiftBringsTheCentreOfAnOddStackToTheOrigin) {
    cImageMathGeneric math;
    const cImageDimensions size{5, 3, 7};
    const cFloatImagePtr in = Random(size, 1, -5, 5), out = MakeImage(size);
    math.FFTShift(in, MakeImage(size), out);
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        EXPECT_EQ(At(out, x, y, z), At(in, (x + 2) % 5, (y + 1) % 3, (z + 3) % 7));
    });
    math.FFTShift(in, MakeImage(size), in);
    EXPECT_EQ(Pixels(in), Pixels(out));
    EXPECT_NE(FailureOf([&] { math.FFTShift(in, MakeImage({5, 3, 6}), in); }), "");
}

// Each pixel below the last limit counts in the bin of the first limit above it, for the
// pedestal search's geometric limits and for limits of either sign or over a huge range:
// values on a limit, repeated limits, limits closer than the lookup's cells, signed zeros,
// subnormals, infinities and NaN included; by both back ends, with lines longer than the
// vector form's chunks.
TEST(cImageMathAnalysis, CountsBelowLimitsMatchASortedSearch) {
    const cImageMathPtr plainPtr(new cImageMathGeneric);
    cImageMath& plain = *plainPtr;
    cImageMathHighway vector(plainPtr);
    const cFloatImagePtr image = Random({1100, 5, 3}, 11, -60.0f, 5.0f);
    At(image, 0, 0, 0) = -std::numeric_limits<float>::infinity();
    At(image, 1, 0, 0) = std::nanf("");
    At(image, 3, 0, 0) = -1e25f;
    At(image, 4, 0, 0) = -0.0f;
    At(image, 5, 0, 0) = -1e-42f; // subnormal
    At(image, 6, 0, 0) = std::numeric_limits<float>::infinity();
    std::vector<std::vector<float>> sets = {{-3.0f}, {-40.0f, 2.0f}, {-1e30f, -7.0f, -1e-20f}};
    for (const std::size_t n : {2, 7, 40, 300}) {
        std::vector<float> geometric;
        for (std::size_t k = 0; k < n; ++k)
            geometric.push_back(-50.0f * std::pow(0.9f, float(k)));
        sets.push_back(geometric);
        geometric[1] = geometric[0]; // a repeated limit
        sets.push_back(geometric);
    }
    // Limits that start as a geometric series and then leave it.
    sets.push_back({-50.0f, -45.0f, -44.9f, -10.0f, -9.99f, -1.0f, 0.0f});
    sets.push_back({-1e-40f, -0.0f, 1e-41f, 3.0f});
    for (const std::vector<float>& limits : sets) {
        At(image, 2, 0, 0) = limits[limits.size() / 2]; // a pixel on a limit
        std::vector<uint64_t> expected(limits.size(), 0);
        for (float p : Pixels(image))
            if (p < limits.back())
                ++expected[std::size_t(std::upper_bound(limits.begin(), limits.end(), p) -
                                       limits.begin())];
        for (cImageMath* math : {&plain, static_cast<cImageMath*>(&vector)}) {
            std::vector<uint64_t> counts(limits.size(), 1);
            math->CountPixelsBelowLimits(image, limits, counts);
            for (uint64_t& c : counts)
                --c; // the counts are added to what the caller holds
            EXPECT_EQ(counts, expected) << limits.size() << " limits from " << limits.front()
                                        << ", back end " << (math == &plain ? "plain" : "vector");
        }
    }
}
