#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <deque>
#include <functional>
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

void Fill(const cFloatImagePtr& image, const PixelFunction& value) {
    const cImageDimensions& size = image->GetDimensions();
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                At(image, x, y, z) = value(x, y, z);
}

cFloatImagePtr MakeImage(const cImageDimensions& size, const PixelFunction& value = nullptr) {
    cFloatImagePtr image(new cFloatImage(size, "cImageMathAnalysisTest"));
    Fill(
        image, value ? value : [](uint32_t, uint32_t, uint32_t) { return 0.0f; });
    return image;
}

// Images whose slices lie in separate blocks, so that walks cannot lean on one layout.
class SlicedImages {
public:
    cFloatImagePtr Make(const cImageDimensions& size, const PixelFunction& value) {
        std::vector<float*>& pointers = mPointers.emplace_back();
        for (uint32_t z = 0; z < size.z; ++z)
            pointers.push_back(mSlices.emplace_back(std::size_t{size.x} * size.y).data());
        cFloatImagePtr image(
            new cFloatImage(pointers.data(), size.x, size.y, size.z, Contiguous2D, "sliced"));
        Fill(image, value);
        return image;
    }

private:
    std::deque<std::vector<float>> mSlices;
    std::deque<std::vector<float*>> mPointers;
};

PixelFunction Random(unsigned seed, float low, float high) {
    auto engine = std::make_shared<std::mt19937>(seed);
    return [engine, low, high](uint32_t, uint32_t, uint32_t) {
        return std::uniform_real_distribution<float>(low, high)(*engine);
    };
}

// The message of the cException that `call` raises, or "" when it raises none.
std::string FailureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const cException& e) {
        EXPECT_EQ(e.GetCode(), 2);
        return e.GetMessage();
    }
    return "";
}

bool SamePixels(const cFloatImagePtr& a, const cFloatImagePtr& b) {
    const cImageDimensions& size = a->GetDimensions();
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            if (std::memcmp(a->GetLinePointer(y, z), b->GetLinePointer(y, z),
                            size.x * sizeof(float)) != 0)
                return false;
    return true;
}

struct ThreadCountGuard {
    ~ThreadCountGuard() { cWorkerThreads::SetCount(0); }
};

} // namespace

TEST(cImageMathAnalysis, FFTShiftMovesHalvesAndBringsTheCentreToTheOrigin) {
    cImageMathGeneric math;
    SlicedImages sliced;
    for (const cImageDimensions size : {cImageDimensions{8, 6, 4}, cImageDimensions{5, 3, 7}}) {
        const cFloatImagePtr in = sliced.Make(size, Random(1, -5, 5));
        const cFloatImagePtr work = MakeImage(size);
        const cFloatImagePtr out = MakeImage(size);
        math.FFTShift(in, work, out);
        for (uint32_t z = 0; z < size.z; ++z)
            for (uint32_t y = 0; y < size.y; ++y)
                for (uint32_t x = 0; x < size.x; ++x)
                    ASSERT_EQ(At(out, x, y, z),
                              At(in, (x + size.x / 2) % size.x, (y + size.y / 2) % size.y,
                                 (z + size.z / 2) % size.z));
        // In place through work gives the same stack.
        const cFloatImagePtr inPlace =
            MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) { return At(in, x, y, z); });
        math.FFTShift(inPlace, work, inPlace);
        EXPECT_TRUE(SamePixels(inPlace, out));
    }

    // Even sizes: a second shift restores the stack.
    const cFloatImagePtr in = MakeImage({8, 6, 4}, Random(2, 0, 1));
    const cFloatImagePtr work = MakeImage({8, 6, 4});
    const cFloatImagePtr twice = MakeImage({8, 6, 4});
    math.FFTShift(in, work, twice);
    math.FFTShift(twice, work, twice);
    EXPECT_TRUE(SamePixels(twice, in));

    // Odd sizes: the centre pixel of a centred stack lands on the origin.
    const cFloatImagePtr centred = MakeImage({5, 3, 7}, [](uint32_t x, uint32_t y, uint32_t z) {
        return x == 2 && y == 1 && z == 3 ? 1.0f : 0.0f;
    });
    const cFloatImagePtr oddWork = MakeImage({5, 3, 7});
    math.FFTShift(centred, oddWork, centred);
    EXPECT_EQ(At(centred, 0, 0, 0), 1.0f);

    EXPECT_EQ(FailureOf([&] { math.FFTShift(in, oddWork, twice); }),
              "Invalid Dimensions in FFTShift");
    EXPECT_EQ(FailureOf([&] { math.FFTShift(in, work, cFloatImagePtr()); }),
              "NULL input image in FFTShift");
}

TEST(cImageMathAnalysis, RadialProfileAveragesARadialSpectrumOverRings) {
    cImageMathGeneric math;
    // Power P(ρ) = exp(-8ρ) of the normalised frequency radius, with a phase that varies
    // from pixel to pixel and slice to slice, so only re² + im² is radial.
    auto power = [](double rho) { return std::exp(-8 * rho); };
    for (const cImageDimensions size : {cImageDimensions{64, 64, 2}, cImageDimensions{64, 40, 1}}) {
        auto rho = [size](uint32_t x, uint32_t y) {
            const double fx = double(x <= size.x / 2 ? x : size.x - x) / size.x;
            const double fy = double(y <= size.y / 2 ? y : size.y - y) / size.y;
            return std::sqrt(fx * fx + fy * fy);
        };
        const cFloatImagePtr re = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
            return float(std::sqrt(power(rho(x, y))) * std::cos(0.7 * x + 1.3 * y + 2.1 * z));
        });
        const cFloatImagePtr im = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
            return float(std::sqrt(power(rho(x, y))) * std::sin(0.7 * x + 1.3 * y + 2.1 * z));
        });
        const uint32_t shorter = std::min(size.x, size.y);
        const std::size_t bins = std::size_t(1.41 * shorter) / 2;
        cCountedArray<float> profile = MakeCountedArray<float>(bins + 1, -1.0f);
        math.CalculateRadialProfile(re, im, profile);

        // Ring i holds the radii from i/m to (i + 1)/m, so its mean power lies between
        // the power at its two edges.
        for (std::size_t i = 0; i < bins; ++i) {
            const double outer = power(double(i + 1) / shorter);
            const double inner = power(double(i) / shorter);
            EXPECT_GE((*profile)[i], outer * (1 - 1e-5)) << "ring " << i;
            EXPECT_LE((*profile)[i], inner * (1 + 1e-5)) << "ring " << i;
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
    const unsigned x0 = 2, xMargin = 3, y0 = 1, yMargin = 2, z0 = 1, zMargin = 1;

    double expected = 0, magnitude = 0;
    int skipped = 0;
    for (uint32_t z = z0; z < size.z - zMargin; ++z)
        for (uint32_t y = y0; y < size.y - yMargin; ++y)
            for (uint32_t x = x0; x < size.x - xMargin; ++x) {
                const double d = double(At(direction, x, y, z)) * step;
                const double f = At(blurred, x, y, z);
                const double ratio = (d + f) / f;
                if (ratio <= 1e-20) {
                    ++skipped;
                    continue;
                }
                const double term = At(data, x, y, z) * std::log(ratio) - d;
                expected += term;
                magnitude += std::abs(term);
            }
    ASSERT_GT(skipped, 0);
    const float gain = math.ComputeLogLikelihoodIncreaseByLineSearch(
        data, blurred, direction, work, step, x0, xMargin, y0, yMargin, z0, zMargin);
    // Float terms and float partial sums over about 2000 pixels: a few 1e-6 of the summed
    // magnitudes; a pixel too many or too few moves the result by about 5e-4 of it.
    EXPECT_NEAR(gain, expected, 5e-5 * magnitude);

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

    // A flat image is its own smooth fixed point: with B = √c every pixel stays c.
    const cFloatImagePtr flat = MakeImage(size, [](uint32_t, uint32_t, uint32_t) { return 9.0f; });
    const cFloatImagePtr root = MakeImage(size, [](uint32_t, uint32_t, uint32_t) { return 3.0f; });
    math.GoodsRoughnessPenalty(flat, root, work, beta);
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                ASSERT_NEAR(At(flat, x, y, z), 9.0f, 9 * 4e-7);

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
    const cFloatImagePtr before =
        MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) { return At(estimate, x, y, z); });
    math.GoodsRoughnessPenalty(estimate, reference, work, beta);
    auto b = [&](uint32_t x, uint32_t y, uint32_t z) { return double(At(reference, x, y, z)); };
    for (const uint32_t z : {0u, 2u, 3u}) {
        const uint32_t x = 3, y = 2;
        double sum = b(x - 1, y, z) + b(x + 1, y, z) + b(x, y - 1, z) + b(x, y + 1, z);
        int neighbours = 4;
        if (z != 0 && z != size.z - 1) {
            sum += b(x, y, z - 1) + b(x, y, z + 1);
            neighbours = 6;
        }
        const double expected =
            (beta * b(x, y, z) * sum + At(before, x, y, z)) / (neighbours * double(beta) + 1);
        EXPECT_NEAR(At(estimate, x, y, z), expected, expected * 1e-6) << "slice " << z;
    }
}

TEST(cImageMathAnalysis, WienerQuotientAndItsReportedRefusals) {
    cImageMathGeneric math;
    std::ostringstream messages, errors;
    math.SetStreams(messages, errors);
    const cImageDimensions size{4, 3, 2};
    const cFloatImagePtr aRe = MakeImage(size, Random(9, -2, 2));
    const cFloatImagePtr aIm = MakeImage(size, Random(10, -2, 2));
    const cFloatImagePtr hRe = MakeImage(size, Random(11, -1, 1));
    const cFloatImagePtr hIm = MakeImage(size, Random(12, -1, 1));
    const cFloatImagePtr outRe = MakeImage(size, [](uint32_t, uint32_t, uint32_t) { return 7.0f; });
    const cFloatImagePtr outIm = MakeImage(size, [](uint32_t, uint32_t, uint32_t) { return 7.0f; });

    // k not above 0, or a missing image: a line on the error stream, outputs untouched.
    EXPECT_NO_THROW(math.WienerFilteringImage(aRe, aIm, hRe, hIm, 0.0f, outRe, outIm));
    EXPECT_NO_THROW(math.WienerFilteringImage(aRe, aIm, hRe, hIm, -1.0f, outRe, outIm));
    EXPECT_NO_THROW(math.WienerFilteringImage(aRe, aIm, hRe, cFloatImagePtr(), 0.1f, outRe, outIm));
    EXPECT_EQ(errors.str(), "Generic Math Error\nGeneric Math Error\nGeneric Math Error\n");
    EXPECT_EQ(messages.str(), "");
    const cFloatImagePtr sevens =
        MakeImage(size, [](uint32_t, uint32_t, uint32_t) { return 7.0f; });
    EXPECT_TRUE(SamePixels(outRe, sevens));
    EXPECT_TRUE(SamePixels(outIm, sevens));

    const float k = 0.05f;
    math.WienerFilteringImage(aRe, aIm, hRe, hIm, k, outRe, outIm);
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x) {
                const std::complex<double> a(At(aRe, x, y, z), At(aIm, x, y, z));
                const std::complex<double> h(At(hRe, x, y, z), At(hIm, x, y, z));
                const std::complex<double> expected = a * std::conj(h) / (std::norm(h) + k);
                const double tolerance = 1e-5 * (std::abs(expected) + 1e-3);
                EXPECT_NEAR(At(outRe, x, y, z), expected.real(), tolerance);
                EXPECT_NEAR(At(outIm, x, y, z), expected.imag(), tolerance);
            }

    EXPECT_EQ(FailureOf([&] {
                  math.WienerFilteringImage(aRe, aIm, hRe, MakeImage({4, 3, 1}), k, outRe, outIm);
              }),
              "Invalid Dimensions in WienerFilteringImage");
}

TEST(cImageMathAnalysis, LogicalOperationsCombineLowBytesOfRoundedPixels) {
    cImageMathGeneric math;
    const std::vector<float> a{3.6f, 2.5f, 257.0f, -1.0f, 12.0f};
    const std::vector<float> b{6.0f, 1.4f, 3.0f, 15.0f, 10.5f};
    // Bytes: a → 4, 2, 1, 255, 12 and b → 6, 1, 3, 15, 10 (ties go to even).
    const cImageDimensions size{5, 1, 1};
    auto image = [&](const std::vector<float>& values) {
        return MakeImage(size, [&](uint32_t x, uint32_t, uint32_t) { return values[x]; });
    };
    auto pixels = [&](const cFloatImagePtr& image) {
        const float* line = image->GetLinePointer(0, 0);
        return std::vector<float>(line, line + size.x);
    };
    const cFloatImagePtr out = MakeImage(size);
    math.LogicalANDImage(image(a), image(b), out);
    EXPECT_EQ(pixels(out), (std::vector<float>{4, 0, 1, 15, 8}));
    math.LogicalORImage(image(a), image(b), out);
    EXPECT_EQ(pixels(out), (std::vector<float>{6, 3, 3, 255, 14}));
    // out may be an input.
    const cFloatImagePtr inPlace = image(a);
    math.LogicalXORImage(inPlace, image(b), inPlace);
    EXPECT_EQ(pixels(inPlace), (std::vector<float>{2, 3, 2, 240, 6}));

    EXPECT_EQ(FailureOf([&] {
                  math.LogicalORImage(image(a), MakeImage({5, 1, 2}), out);
              }),
              "Invalid Dimensions in LogicalORImage");
}

TEST(cImageMathAnalysis, TransposeSwapsXAndYOfEverySlice) {
    cImageMathGeneric math;
    SlicedImages sliced;
    const cFloatImagePtr in = sliced.Make({5, 3, 2}, Random(13, 0, 1));
    const cFloatImagePtr out = MakeImage({3, 5, 2});
    math.TransposeImage(in, out);
    for (uint32_t z = 0; z < 2; ++z)
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t x = 0; x < 5; ++x)
                ASSERT_EQ(At(out, y, x, z), At(in, x, y, z));

    // Square slices transpose in place as they do into a second image.
    const cFloatImagePtr square = MakeImage({4, 4, 2}, Random(14, 0, 1));
    const cFloatImagePtr squareOut = MakeImage({4, 4, 2});
    math.TransposeImage(square, squareOut);
    math.TransposeImage(square, square);
    EXPECT_TRUE(SamePixels(square, squareOut));

    EXPECT_EQ(FailureOf([&] {
                  math.TransposeImage(in, MakeImage({5, 3, 2}));
              }),
              "Invalid Dimensions in TransposeImage");
}

TEST(cImageMathAnalysis, StatisticsAndHistogramOfAMaskedRegion) {
    cImageMathGeneric math;
    const cImageDimensions size{3, 2, 1};
    const std::vector<float> values{1, 2, 3, 4, 5, 6};
    const cFloatImagePtr image =
        MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t) { return values[y * 3 + x]; });
    // Only a mask of exactly 1 selects: the pixels 1, 3 and 4.
    const std::vector<float> selection{1, 0, 1, 1, 0, 0.5f};
    const cFloatImagePtr mask =
        MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t) { return selection[y * 3 + x]; });
    cCountedArray<float> histogram = MakeCountedArray<float>(512, 9.0f);
    cImageMathStatistics statistics;
    EXPECT_EQ(math.CalculateStatisticsByMask(image, mask, 0.5f, 2.0f, histogram, &statistics), 0);

    EXPECT_EQ(statistics.pixelCount, 3u);
    EXPECT_EQ(statistics.minimum, 1.0f);
    EXPECT_EQ(statistics.maximum, 4.0f);
    EXPECT_EQ(statistics.sum, 8.0);
    EXPECT_FLOAT_EQ(statistics.mean, 8.0f / 3);
    EXPECT_NEAR(statistics.variance, 14.0 / 9, 1e-6);
    EXPECT_NEAR(statistics.standardDeviation, std::sqrt(14.0 / 9), 1e-6);
    EXPECT_FLOAT_EQ(statistics.area, 3.0f);
    // The range 1..4 spreads over bins 0..255: 1 → 0, 3 → 170, 4 → 255.
    std::vector<float> expected(512, 0.0f);
    expected[0] = expected[170] = expected[255] = 1;
    EXPECT_EQ(*histogram, expected);

    // No selected pixel: anchored at the first pixel, nothing counted, the means stay 0.
    const cFloatImagePtr none = MakeImage(size);
    EXPECT_EQ(math.CalculateStatisticsByMask(image, none, 1, 1, histogram, &statistics), 0);
    EXPECT_EQ(statistics.pixelCount, 0u);
    EXPECT_EQ(statistics.minimum, 1.0f);
    EXPECT_EQ(statistics.maximum, 1.0f);
    EXPECT_EQ(statistics.mean, 0.0f);
    EXPECT_EQ(statistics.variance, 0.0);
    EXPECT_EQ(*histogram, std::vector<float>(512, 0.0f));
}

TEST(cImageMathAnalysis, SearchesMasksAndMultipliers) {
    cImageMathGeneric math;
    // All pixels at the maximum span the corners; one alone gives one position.
    const cFloatImagePtr peaks = MakeImage({6, 5, 4}, [](uint32_t x, uint32_t y, uint32_t z) {
        const bool peak = (x == 1 && y == 3 && z == 2) || (x == 4 && y == 0 && z == 2) ||
                          (x == 2 && y == 2 && z == 3);
        return peak ? 9.0f : float(x + y) * 0.5f - 4;
    });
    cImagePosition upper, lower;
    math.FindMaxMinPositionOfMaximumValue(peaks, upper, lower);
    EXPECT_EQ(lower, (cImagePosition{1, 0, 2}));
    EXPECT_EQ(upper, (cImagePosition{4, 3, 3}));
    EXPECT_EQ(math.EstimateForegroundThreshold(peaks), 2.25f);
    At(peaks, 5, 4, 0) = 10;
    math.FindMaxMinPositionOfMaximumValue(peaks, upper, lower);
    EXPECT_EQ(lower, (cImagePosition{5, 4, 0}));
    EXPECT_EQ(upper, lower);

    // The mask keeps what is at least a fraction of the power at zero frequency (25).
    const cFloatImagePtr re = MakeImage({3, 1, 1}, [](uint32_t x, uint32_t, uint32_t) {
        return std::vector<float>{3, 2, 1}[x];
    });
    const cFloatImagePtr im = MakeImage({3, 1, 1}, [](uint32_t x, uint32_t, uint32_t) {
        return std::vector<float>{4, 1, 1}[x];
    });
    math.GeneratePowerSpectrumMask(re, im, 0, 0.2f);
    EXPECT_EQ(At(re, 0, 0, 0), 1.0f);
    EXPECT_EQ(At(re, 1, 0, 0), 1.0f); // power 5, exactly at the level
    EXPECT_EQ(At(re, 2, 0, 0), 0.0f); // power 2

    // Multipliers over an image 1 2 3 4 with the mask on 2 and 4: T = 10, I = 6, O = 4.
    const cFloatImagePtr image =
        MakeImage({2, 2, 1}, [](uint32_t x, uint32_t y, uint32_t) { return float(1 + x + 2 * y); });
    const cFloatImagePtr mask =
        MakeImage({2, 2, 1}, [](uint32_t x, uint32_t, uint32_t) { return float(x); });
    EXPECT_FLOAT_EQ(math.LagrangeMultiplierCalculateVU(image, mask), 0.8f);
    EXPECT_FLOAT_EQ(math.LagrangeMultiplierCalculateA2(image, mask, 0.25f, 2), -8.0f);
    EXPECT_EQ(math.LagrangeMultiplierCalculateA2(image, mask, 1.0f, 2), 0.0f);
    EXPECT_EQ(math.LagrangeMultiplierCalculateA2(image, mask, 0.0f, 2), 1.0f);
    // so = 1, si = 1/2: one Newton step from a3 = 1 on so·O + si·I = 1.
    EXPECT_FLOAT_EQ(math.LagrangeMultiplierCalculateA3(image, mask, 3, 1, 1), 1 - 6 / 5.5f);

    const cFloatImagePtr out = MakeImage({2, 2, 1});
    math.LagrangeMultiplierConstraintApply(out, image, mask, 3, 1, 1, 0.25f);
    EXPECT_TRUE(SamePixels(out, MakeImage({2, 2, 1}, [](uint32_t x, uint32_t y, uint32_t) {
                               return float(1 + x + 2 * y) * (x != 0 ? 0.5f : 1.0f);
                           })));
    // A negative factor gives way to a split that leaves the outside `fraction` of the
    // whole.
    math.LagrangeMultiplierConstraintApply(out, image, mask, 1, 1, 1, 0.25f);
    EXPECT_FLOAT_EQ(At(out, 1, 0, 0) + At(out, 1, 1, 0), 6.0f);
    EXPECT_FLOAT_EQ((At(out, 0, 0, 0) + At(out, 0, 1, 0)) / 8, 0.25f);
    math.LagrangeMultiplierConstraintApply(out, image, mask, 1, 0, 1, 0.25f);
    EXPECT_TRUE(SamePixels(out, image));

    // The plain back end has no fill of its own and leaves the image as it was.
    EXPECT_EQ(math.FloodFillImage(image, 0, 0, 0, 5.0f), 0);
    EXPECT_TRUE(SamePixels(image, MakeImage({2, 2, 1}, [](uint32_t x, uint32_t y, uint32_t) {
                               return float(1 + x + 2 * y);
                           })));
}

TEST(cImageMathAnalysis, ResultsDoNotDependOnTheThreadCount) {
    ThreadCountGuard restore;
    cImageMathGeneric math;
    // Several pieces of a reduction's partition, and enough pixels to fan out.
    const cImageDimensions size{96, 80, 24};
    const cFloatImagePtr data = MakeImage(size, Random(20, 0, 100));
    const cFloatImagePtr blurred = MakeImage(size, Random(21, 1, 90));
    const cFloatImagePtr direction = MakeImage(size, Random(22, -20, 20));
    const cFloatImagePtr work = MakeImage(size);

    struct Results {
        float gain;
        std::vector<float> profile;
        cFloatImagePtr smoothed, shifted;
        cImagePosition upper, lower;
    };
    auto run = [&](int threads) {
        cWorkerThreads::SetCount(threads);
        Results r;
        r.gain = math.ComputeLogLikelihoodIncreaseByLineSearch(data, blurred, direction, work, 1.5f,
                                                               3, 4, 2, 2, 1, 3);
        cCountedArray<float> profile = MakeCountedArray<float>(57);
        math.CalculateRadialProfile(data, direction, profile);
        r.profile = *profile;
        r.smoothed =
            MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) { return At(data, x, y, z); });
        math.GoodsRoughnessPenalty(r.smoothed, blurred, work, 0.01f);
        r.shifted = MakeImage(size);
        math.FFTShift(data, work, r.shifted);
        math.FindMaxMinPositionOfMaximumValue(data, r.upper, r.lower);
        return r;
    };
    const Results one = run(1);
    const Results two = run(2);
    EXPECT_EQ(std::memcmp(&one.gain, &two.gain, sizeof(float)), 0);
    EXPECT_EQ(one.profile, two.profile);
    EXPECT_TRUE(SamePixels(one.smoothed, two.smoothed));
    EXPECT_TRUE(SamePixels(one.shifted, two.shifted));
    EXPECT_EQ(one.upper, two.upper);
    EXPECT_EQ(one.lower, two.lower);
}
