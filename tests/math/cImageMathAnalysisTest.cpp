#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerThreads.h"
#include "math/cImageMathGeneric.h"

using namespace Ovidane;

namespace {

using PixelFunction = std::function<float(uint32_t, uint32_t, uint32_t)>;

float& At(const cFloatImagePtr& image, uint32_t x, uint32_t y, uint32_t z) {
    return *image->GetPixelPointer(x, y, z);
}

cFloatImagePtr MakeImage(const cImageDimensions& size, const PixelFunction& value = nullptr) {
    cFloatImagePtr image(new cFloatImage(size, "cImageMathAnalysisTest"));
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                At(image, x, y, z) = value ? value(x, y, z) : 0.0f;
    return image;
}

cFloatImagePtr Copy(const cFloatImagePtr& image) {
    return MakeImage(image->GetDimensions(),
                     [&](uint32_t x, uint32_t y, uint32_t z) { return At(image, x, y, z); });
}

PixelFunction Random(unsigned seed, float low, float high) {
    auto engine = std::make_shared<std::mt19937>(seed);
    return [engine, low, high](uint32_t, uint32_t, uint32_t) {
        return std::uniform_real_distribution<float>(low, high)(*engine);
    };
}

// All pixels in walking order, for exact comparisons.
std::vector<float> Pixels(const cFloatImagePtr& image) {
    std::vector<float> all;
    const cImageDimensions& size = image->GetDimensions();
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                all.push_back(At(image, x, y, z));
    return all;
}

// The message of the cException of code 2 that `call` raises, or "" when it raises none.
std::string FailureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const cException& e) {
        EXPECT_EQ(e.GetCode(), 2);
        return e.GetMessage();
    }
    return "";
}

} // namespace

TEST(cImageMathAnalysis, FFTShiftSwapsHalvesAndBringsTheCentreToTheOrigin) {
    cImageMathGeneric math;
    for (const cImageDimensions size : {cImageDimensions{8, 6, 4}, cImageDimensions{5, 3, 7}}) {
        const cFloatImagePtr in = MakeImage(size, Random(1, -5, 5));
        const cFloatImagePtr work = MakeImage(size);
        const cFloatImagePtr out = MakeImage(size);
        math.FFTShift(in, work, out);
        for (uint32_t z = 0; z < size.z; ++z)
            for (uint32_t y = 0; y < size.y; ++y)
                for (uint32_t x = 0; x < size.x; ++x)
                    ASSERT_EQ(At(out, x, y, z),
                              At(in, (x + size.x / 2) % size.x, (y + size.y / 2) % size.y,
                                 (z + size.z / 2) % size.z));
        // In place, through work, the same; for even sizes a second shift restores.
        const cFloatImagePtr twice = Copy(in);
        math.FFTShift(twice, work, twice);
        EXPECT_EQ(Pixels(twice), Pixels(out));
        math.FFTShift(twice, work, twice);
        if (size.x % 2 == 0) {
            EXPECT_EQ(Pixels(twice), Pixels(in));
        }
    }
    // Odd sizes: the centre pixel of a centred stack lands on the origin.
    const cFloatImagePtr centred = MakeImage({5, 3, 7}, [](uint32_t x, uint32_t y, uint32_t z) {
        return x == 2 && y == 1 && z == 3 ? 1.0f : 0.0f;
    });
    math.FFTShift(centred, MakeImage({5, 3, 7}), centred);
    EXPECT_EQ(At(centred, 0, 0, 0), 1.0f);

    EXPECT_EQ(FailureOf([&] {
                  math.FFTShift(centred, MakeImage({5, 3, 6}), centred);
              }),
              "Invalid Dimensions in FFTShift");
    EXPECT_EQ(FailureOf([&] { math.FFTShift(centred, centred, cFloatImagePtr()); }),
              "NULL input image in FFTShift");
}

TEST(cImageMathAnalysis, RadialProfileAveragesARadialSpectrumOverRings) {
    cImageMathGeneric math;
    // Power exp(-8ρ) of the frequency radius, each axis scaled by its own size, with a
    // phase that varies over pixels and slices, so that only re² + im² is radial.
    auto power = [](double rho) { return std::exp(-8 * rho); };
    for (const cImageDimensions size : {cImageDimensions{64, 64, 2}, cImageDimensions{64, 40, 1}}) {
        auto amplitude = [size, power](uint32_t x, uint32_t y) {
            const double fx = double(x <= size.x / 2 ? x : size.x - x) / size.x;
            const double fy = double(y <= size.y / 2 ? y : size.y - y) / size.y;
            return std::sqrt(power(std::sqrt(fx * fx + fy * fy)));
        };
        const cFloatImagePtr re = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
            return float(amplitude(x, y) * std::cos(0.7 * x + 1.3 * y + 2.1 * z));
        });
        const cFloatImagePtr im = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
            return float(amplitude(x, y) * std::sin(0.7 * x + 1.3 * y + 2.1 * z));
        });
        const uint32_t shorter = std::min(size.x, size.y);
        const std::size_t bins = std::size_t(1.41 * shorter) / 2;
        cCountedArray<float> profile = MakeCountedArray<float>(bins + 1, -1.0f);
        math.CalculateRadialProfile(re, im, profile);
        // Ring i holds the radii from i/m to (i + 1)/m: its mean power lies between the
        // powers at its edges.
        for (std::size_t i = 0; i < bins; ++i) {
            EXPECT_GE((*profile)[i], power(double(i + 1) / shorter) * (1 - 1e-5)) << i;
            EXPECT_LE((*profile)[i], power(double(i) / shorter) * (1 + 1e-5)) << i;
        }
        EXPECT_EQ((*profile)[bins], 0.0f);

        cCountedArray<float> tooShort = MakeCountedArray<float>(bins);
        EXPECT_EQ(FailureOf([&] { math.CalculateRadialProfile(re, im, tooShort); }),
                  "Invalid Dimensions in CalculateRadialProfile");
    }
}

TEST(cImageMathAnalysis, LineSearchGainAgreesWithADoublePrecisionSum) {
    cImageMathGeneric math;
    const cImageDimensions size{20, 18, 6};
    const cFloatImagePtr data = MakeImage(size, Random(3, 0, 50));
    const cFloatImagePtr blurred = MakeImage(size, Random(4, 0.5f, 40));
    // Wide enough that some steps drive the reblurred image below zero.
    const cFloatImagePtr direction = MakeImage(size, Random(5, -30, 30));
    const cFloatImagePtr work = MakeImage(size);
    const float step = 0.7f;

    double expected = 0, magnitude = 0;
    int skipped = 0;
    for (uint32_t z = 1; z < size.z - 1; ++z)
        for (uint32_t y = 1; y < size.y - 2; ++y)
            for (uint32_t x = 2; x < size.x - 3; ++x) {
                const double d = double(At(direction, x, y, z)) * step;
                const double ratio = (d + At(blurred, x, y, z)) / At(blurred, x, y, z);
                if (ratio <= 1e-20) {
                    ++skipped;
                    continue;
                }
                const double term = At(data, x, y, z) * std::log(ratio) - d;
                expected += term;
                magnitude += std::abs(term);
            }
    ASSERT_GT(skipped, 0);
    // Float terms and float sums over about 2000 pixels stay within a few 1e-6 of the
    // summed magnitudes; a pixel too many or too few moves the result by some 5e-4 of it.
    EXPECT_NEAR(math.ComputeLogLikelihoodIncreaseByLineSearch(data, blurred, direction, work, step,
                                                              2, 3, 1, 2, 1, 1),
                expected, 5e-5 * magnitude);
    // Margins that leave no pixel give no gain.
    EXPECT_EQ(math.ComputeLogLikelihoodIncreaseByLineSearch(data, blurred, direction, work, step,
                                                            12, 8, 0, 0, 0, 0),
              0.0f);

    // A single plane needs work to match in x and y only; a volume in all three sizes.
    const cFloatImagePtr plane = MakeImage({20, 18, 1}, Random(6, 1, 2));
    const cFloatImagePtr twoPlanes = MakeImage({20, 18, 2});
    EXPECT_NO_THROW(math.ComputeLogLikelihoodIncreaseByLineSearch(plane, plane, plane, twoPlanes,
                                                                  step, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(FailureOf([&] {
                  math.ComputeLogLikelihoodIncreaseByLineSearch(data, blurred, direction, twoPlanes,
                                                                step, 0, 0, 0, 0, 0, 0);
              }),
              "Invalid Dimensions in ComputeLogLikelihoodIncreaseByLineSearch");
}

TEST(cImageMathAnalysis, GoodsRoughnessKeepsAFlatImageAndSparesSliceBorders) {
    cImageMathGeneric math;
    const cImageDimensions size{7, 6, 4};
    const cFloatImagePtr work = MakeImage(size);
    const float beta = 0.3f;

    // A flat image is a fixed point: with B = √c every pixel stays c.
    const cFloatImagePtr flat = MakeImage(size, [](uint32_t, uint32_t, uint32_t) { return 9.0f; });
    math.GoodsRoughnessPenalty(flat, MakeImage(size, [](auto...) { return 3.0f; }), work, beta);
    for (const float p : Pixels(flat))
        ASSERT_NEAR(p, 9.0f, 9 * 4e-7);

    // Zeros: the interior is floored, the border of each slice is left alone.
    const cFloatImagePtr zero = MakeImage(size);
    math.GoodsRoughnessPenalty(zero, MakeImage(size), work, beta);
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x) {
                const bool border = x == 0 || y == 0 || x == size.x - 1 || y == size.y - 1;
                ASSERT_EQ(At(zero, x, y, z), border ? 0.0f : 1e-20f) << x << "," << y << "," << z;
            }

    // Outer slices see four neighbours of B, inner slices six.
    const cFloatImagePtr estimate = MakeImage(size, Random(7, 1, 4));
    const cFloatImagePtr reference = MakeImage(size, Random(8, 1, 2));
    const cFloatImagePtr before = Copy(estimate);
    math.GoodsRoughnessPenalty(estimate, reference, work, beta);
    auto b = [&](uint32_t x, uint32_t y, uint32_t z) { return double(At(reference, x, y, z)); };
    const uint32_t x = 3, y = 2;
    for (const uint32_t z : {0u, 2u, 3u}) {
        double sum = b(x - 1, y, z) + b(x + 1, y, z) + b(x, y - 1, z) + b(x, y + 1, z);
        const bool inner = z != 0 && z != size.z - 1;
        if (inner)
            sum += b(x, y, z - 1) + b(x, y, z + 1);
        const double expected =
            (beta * b(x, y, z) * sum + At(before, x, y, z)) / ((inner ? 6 : 4) * double(beta) + 1);
        EXPECT_NEAR(At(estimate, x, y, z), expected, expected * 1e-6) << "slice " << z;
    }
}

TEST(cImageMathAnalysis, ResultsDoNotDependOnTheThreadCount) {
    cImageMathGeneric math;
    // Several pieces of a reduction's partition, and enough pixels to fan out.
    const cImageDimensions size{96, 80, 24};
    const cFloatImagePtr data = MakeImage(size, Random(20, 0, 100));
    const cFloatImagePtr blurred = MakeImage(size, Random(21, 1, 90));
    const cFloatImagePtr direction = MakeImage(size, Random(22, -20, 20));
    const cFloatImagePtr work = MakeImage(size);
    auto run = [&](int threads) {
        cWorkerThreads::SetCount(threads);
        std::vector<float> results{math.ComputeLogLikelihoodIncreaseByLineSearch(
            data, blurred, direction, work, 1.5f, 3, 4, 2, 2, 1, 3)};
        cCountedArray<float> profile = MakeCountedArray<float>(57);
        math.CalculateRadialProfile(data, direction, profile);
        results.insert(results.end(), profile->begin(), profile->end());
        const cFloatImagePtr smoothed = Copy(data);
        math.GoodsRoughnessPenalty(smoothed, blurred, work, 0.01f);
        const cFloatImagePtr shifted = MakeImage(size);
        math.FFTShift(data, work, shifted);
        for (const cFloatImagePtr& image : {smoothed, shifted})
            for (const float p : Pixels(image))
                results.push_back(p);
        return results;
    };
    const std::vector<float> one = run(1);
    const std::vector<float> two = run(2);
    cWorkerThreads::SetCount(0);
    EXPECT_TRUE(one == two);
}

// Each pixel below the last limit counts in the bin of the first limit above it, for the
// pedestal search's geometric limits and for limits of either sign or over a huge range:
// values on a limit, repeated limits, -infinity and NaN included.
TEST(cImageMathAnalysis, CountsBelowLimitsMatchASortedSearch) {
    cImageMathGeneric math;
    const cFloatImagePtr image = MakeImage({37, 5, 3}, Random(11, -60.0f, 5.0f));
    At(image, 0, 0, 0) = -std::numeric_limits<float>::infinity();
    At(image, 1, 0, 0) = std::nanf("");
    At(image, 3, 0, 0) = -1e25f;
    std::vector<std::vector<float>> sets = {{-3.0f}, {-40.0f, 2.0f}, {-1e30f, -7.0f, -1e-20f}};
    for (const std::size_t n : {2, 7, 40}) {
        std::vector<float> geometric;
        for (std::size_t k = 0; k < n; ++k)
            geometric.push_back(-50.0f * std::pow(0.9f, float(k)));
        geometric[1] = geometric[0]; // a repeated limit
        sets.push_back(geometric);
    }
    for (const std::vector<float>& limits : sets) {
        At(image, 2, 0, 0) = limits[limits.size() / 2]; // a pixel on a limit
        std::vector<uint64_t> expected(limits.size(), 0), counts(limits.size(), 1);
        for (float p : Pixels(image))
            if (p < limits.back())
                ++expected[std::size_t(std::upper_bound(limits.begin(), limits.end(), p) -
                                       limits.begin())];
        math.CountPixelsBelowLimits(image, limits, counts);
        for (uint64_t& c : counts)
            --c; // the counts are added to what the caller holds
        EXPECT_EQ(counts, expected) << limits.size() << " limits from " << limits.front();
    }
}
