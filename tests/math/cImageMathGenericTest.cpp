#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "ImageMathTestImages.h"
#include "core/cWorkerThreads.h"
#include "math/FastLogExp.h"
#include "math/cImageMathGeneric.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// The plain back end on both layouts of images.
class ImageMathTest : public ImageMathTestImages {
protected:
    ImageMathTest() : ImageMathTestImages(20240611) {}

    cImageMathGeneric math;
};

TEST_F(ImageMathTest, ChecksRefuseBeforeWriting) {
    const cFloatImagePtr a = Make({4, 4, 4}), b5 = Make({4, 4, 5}), out = Make({4, 4, 4}, false, 7);
    const cFloatImagePtr none, narrow = Make({3, 4, 1});
    // Box sizes are compared as given: up and down cover the same pixels but differ.
    const cImageBox up{0, 0, 0, 3, 3, 0}, down{3, 3, 0, 0, 0, 0}, wide{0, 0, 0, 4, 3, 0},
        pastX{0, 0, 0, 4, 0, 0};
    cImagePosition origin{0, 0, 0}, corner{3, 0, 0};
    const std::function<void()> refused[] = {
        [&] { math.AddImage(a, a, none); },
        [&] { math.SumImage(none); },
        [&] { math.SubtractImage(a, b5, out); },
        [&] { math.MultiplyImageByConstant(a, 2.0f, b5); },
        [&] { math.MultiplyImageRoi(a, a, out, up, down, up); },
        [&] { math.AddImageRoi(a, a, out, up, up, wide); },
        [&] { math.CopyRectangularRoi(a, out, wide, up); },
        [&] { math.CopyRectangularRoi(a, out, up, wide); },
        [&] { math.CopyRectangularRoi(a, out, up, down); },
        [&] { math.NormalizeImage(a, out, 0u, 4u, 1.0f); },
        [&] { math.Generate3DGaussian(none, 1, 1, 1, 1, 1, 1); },
        [&] { math.CreateDoubleTruncatedCone(none, 1, 1, 1, 0, 1, 1, 1); },
        [&] { math.InterpolateLine(none, origin, corner); },
        [&] { math.InterpolateBilinear(a, out, none, out); },
        [&] { math.InterpolateBilinear(a, out, narrow, out); },
        [&] { math.InterpolateRoi(out, pastX, 1); },
        [&] { math.Generate3DDvorakHourGlass(out, b5, 1, 1, 1, 1, 1.5f, 0.5f, 1, false); },
    };
    for (const auto& call : refused)
        EXPECT_NE(FailureOf(call), "");
    EXPECT_EQ(Pixels(out), std::vector<float>(64, 7.0f));
}

TEST_F(ImageMathTest, BoxesPairPixelsAndMayGiveTheirCornersInEitherOrder) {
    const cImageDimensions size{6, 5, 3};
    const cFloatImagePtr a = Random(size, false), b = Random(size, true);
    const cFloatImagePtr forward = Make(size, false, -1.0f), reversed = Make(size, true, -1.0f);
    // A 3x2x2 box at three different places.
    const cImageBox boxA{0, 0, 0, 2, 1, 1}, boxB{3, 3, 1, 5, 4, 2}, boxOut{1, 2, 0, 3, 3, 1};
    const auto flip = [](const cImageBox& box) {
        return cImageBox{box.x1, box.y1, box.z1, box.x0, box.y0, box.z0};
    };
    math.MultiplyImageRoi(a, b, forward, boxA, boxB, boxOut);
    math.MultiplyImageRoi(a, b, reversed, flip(boxA), flip(boxB), flip(boxOut));
    EXPECT_EQ(Pixels(forward), Pixels(reversed));
    const auto product = [&](uint32_t x, uint32_t y, uint32_t z) {
        const bool inside = x >= 1 && x <= 3 && y >= 2 && y <= 3 && z <= 1;
        return inside ? At(a, x - 1, y - 2, z) * At(b, x + 2, y + 1, z + 1) : -1.0f;
    };
    EXPECT_EQ(Pixels(forward), Pixels(MakeImage(size, product)));

    const cFloatImagePtr low = Make(size), high = Make(size);
    math.SetRoiToConstant(low, {1, 1, 0, 4, 3, 2}, 5.0f);
    math.SetRoiToConstant(high, {4, 3, 2, 1, 1, 0}, 5.0f);
    EXPECT_EQ(Pixels(low), Pixels(high));
    EXPECT_EQ(math.SumImage(low), 5.0 * 4 * 3 * 3);
}

// The sums themselves are checked beside the vector back end's.
TEST_F(ImageMathTest, ReductionsAccumulateInDoubleOverBothLayouts) {
    // The one-pass forms equal the passes they stand for, bit for bit, also over an image of
    // several pieces of the partition, and leave the image alone.
    for (const cImageDimensions& shape : {cImageDimensions{37, 11, 4}, {301, 250, 3}}) {
        const cFloatImagePtr a = Random(shape, shape.z > 3);
        const std::vector<float> before = Pixels(a);
        float low = 0.0f, high = 0.0f;
        math.FindMinimumAndMaximumValue(a, low, high);
        EXPECT_EQ(low, math.FindMinimumValue(a));
        EXPECT_EQ(high, math.FindMaximumValue(a));
        const cFloatImagePtr scaled = Make(shape);
        math.NormalizeImage(a, scaled, low, high);
        EXPECT_EQ(math.SumNormalizedImage(a, low, high), math.SumImage(scaled));
        EXPECT_TRUE(Pixels(a) == before);
    }

    // The image sums keep what a float sum would lose: 2^25 + 4095 ones.
    const cFloatImagePtr big = Make({64, 64, 1}, false, 1.0f);
    At(big, 0, 0, 0) = 33554432.0f;
    EXPECT_EQ(math.SumImage(big), 33554432.0 + 4095.0);
    EXPECT_EQ(math.SumImageSlice(big, 0), 33554432.0 + 4095.0);

    // Searches start from the extreme floats, not from zero; the top of a range is out.
    const cFloatImagePtr negative = Make({3, 3, 3}, true, -5.0f);
    At(negative, 2, 1, 2) = -2.0f;
    EXPECT_EQ(math.FindMaximumValue(negative), -2.0f);
    EXPECT_EQ(math.CountPixelInRange(negative, -5.0f, -2.0f), 26u);
    EXPECT_EQ(math.FindMinimumValue(Make({3, 3, 3}, false, 5.0f)), 5.0f);

    // The unmasked mean takes the pixels marked 0 exactly; 1 and 2 are out.
    const cFloatImagePtr image = Make({4, 1, 1}), mask = Make({4, 1, 1});
    const float pixels[] = {1, 2, 3, 10}, marks[] = {1, 1, 0, 2};
    for (uint32_t x = 0; x < 4; ++x)
        At(image, x, 0, 0) = pixels[x], At(mask, x, 0, 0) = marks[x];
    EXPECT_EQ(math.UnMaskedAverageImage(image, mask), 3.0f);
    EXPECT_EQ(math.AverageImage(image), 4.0f);
}

TEST_F(ImageMathTest, NonNegativityCompressionsLiftNegativeValues) {
    const cImageDimensions size{10, 10, 1};
    // No negative value: a copy, in place or not.
    const cFloatImagePtr positive = Random(size, false, 0.0f, 3.0f), copy = Make(size);
    math.NonNegativityCompression(positive, 100.0f, copy);
    EXPECT_EQ(Pixels(copy), Pixels(positive));
    math.NonNegativityCompression(positive, 100.0f, positive);
    EXPECT_EQ(Pixels(copy), Pixels(positive));

    // 20 of 100 pixels are negative, down to -4; the others lie in 1..3.
    const cFloatImagePtr a = Random(size, true, 1.0f, 3.0f);
    for (uint32_t x = 0; x < 10; ++x)
        At(a, x, 0, 0) = -4.0f + 0.3f * x, At(a, x, 1, 0) = -0.1f * (x + 1);
    const float originalSum = static_cast<float>(math.SumImage(a));
    const cFloatImagePtr out = Make(size);
    math.NonNegativityCompression(a, originalSum, out);
    const float t = 0.1f * std::fmin(math.FindMaximumValue(a), 4.0f);
    EXPECT_EQ(At(out, 0, 0, 0), 0.0f); // the minimum lands on 0
    EXPECT_GE(math.FindMinimumValue(out), 0.0f);
    EXPECT_EQ(At(out, 5, 5, 0), At(a, 5, 5, 0)); // values above t are kept
    EXPECT_LE(At(out, 9, 1, 0), t);

    // Inverted: the pedestal raises a and is reported; nothing stays below 0.1.
    const cFloatImagePtr b = Clone(a), inverted = Make(size);
    float pedestal = 99.0f;
    math.NonNegativityCompressionInverted(b, inverted, &pedestal);
    EXPECT_LT(pedestal, -1.0f);
    EXPECT_GT(pedestal, -4.0f);
    EXPECT_FLOAT_EQ(At(b, 5, 5, 0), At(a, 5, 5, 0) - pedestal);
    EXPECT_GE(math.FindMinimumValue(inverted), 0.1f);

    // An infinite minimum (a restoration past the float limit) has no pedestal: a failure,
    // not a search without end. One pixel of 200 lies below the limit share.
    const cFloatImagePtr endless = Random({10, 20, 1}, false, 1.0f, 3.0f);
    for (uint32_t x = 0; x < 10; ++x)
        At(endless, x, 0, 0) = At(endless, x, 1, 0) = -2.0f;
    At(endless, 3, 7, 0) = -std::numeric_limits<float>::infinity();
    const cFloatImagePtr unused = Make({10, 20, 1});
    EXPECT_NE(
        FailureOf([&] { math.NonNegativityLinearCompression(endless, 200.0f, 0.05f, unused); }),
        "");
    EXPECT_NE(FailureOf([&] { math.NonNegativityCompressionInverted(endless, unused, nullptr); }),
              "");
}

TEST_F(ImageMathTest, CopiesPadAndCut) {
    const cFloatImagePtr in = Random({4, 3, 2}, false);
    const cFloatImagePtr wide = Make({6, 3, 2}, true, 5.0f), narrow = Make({3, 3, 2}, false);
    math.CopyImage(in, wide);
    math.CopyImage(in, narrow);
    EXPECT_EQ(At(wide, 3, 2, 1), At(in, 3, 2, 1));
    EXPECT_EQ(At(wide, 4, 2, 1), 0.0f);
    EXPECT_EQ(At(wide, 5, 0, 0), 0.0f);
    EXPECT_EQ(At(narrow, 2, 1, 1), At(in, 2, 1, 1));
    const cFloatImagePtr taller = Make({4, 5, 2}, false, 5.0f);
    math.CopyImage(in, taller);
    EXPECT_EQ(Pixels(taller), std::vector<float>(40, 5.0f)); // same width: nothing copied
}

// Every element-wise operation, reduction, analysis and shape gives the same bits on one, two
// and three worker threads, on a stack of several pieces of a reduction's partition.
TEST_F(ImageMathTest, ResultsDoNotDependOnTheThreadCount) {
    const cImageDimensions size{96, 80, 24};
    const cFloatImagePtr a = Random(size, false), b = Random(size, true);
    const cFloatImagePtr data = Random(size, false, 0, 100), blurred = Random(size, true, 1, 90);
    const auto runAll = [&](int threads) {
        cWorkerThreads::SetCount(threads);
        std::vector<double> run;
        const auto keep = [&](Images image) {
            for (float p : Pixels(image))
                run.push_back(p);
        };
        for (const ElementWise& op : ElementWiseOperations()) {
            const cFloatImagePtr out = Make(size, true);
            op.run(math, Clone(a), b, out);
            keep(out);
        }
        const cFloatImagePtr work = Make(size), smoothed = Clone(data), shifted = Make(size);
        math.GoodsRoughnessPenalty(smoothed, blurred, work, 0.01f);
        math.FFTShift(data, work, shifted);
        const cFloatImagePtr gaussian = Make(size);
        math.Generate3DGaussian(gaussian, 0.1f, 0.1f, 0.3f, 0.7f, 0.9f, 2.0f);
        for (Images image : {smoothed, shifted, gaussian})
            keep(image);
        cCountedArray<float> profile = MakeCountedArray<float>(57);
        math.CalculateRadialProfile(data, a, profile);
        run.insert(run.end(), profile->begin(), profile->end());
        run.insert(run.end(),
                   {math.SumImage(a), math.SumImageSlice(a, 1), math.AverageImage(a),
                    math.UnMaskedAverageImage(a, Make(size)), math.FindMinimumValue(a),
                    math.FindMaximumValue(a), double(math.CountPixelInRange(a, -1.0f, 1.0f)),
                    math.ComputeLogLikelihoodIncreaseByLineSearch(data, blurred, a, work, 1.5f, 3,
                                                                  4, 2, 2, 1, 3)});
        return run;
    };
    const std::vector<double> one = runAll(1), two = runAll(2), three = runAll(3);
    cWorkerThreads::SetCount(0);
    ASSERT_EQ(one.size(), two.size());
    EXPECT_EQ(std::memcmp(one.data(), two.data(), one.size() * sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(one.data(), three.data(), one.size() * sizeof(double)), 0);
}

} // namespace

// The vectorisable logarithm and exponential of the iterative methods' fused steps, against
// the C library over the whole normal float range, and held at its ends outside it.
TEST(FastLogExp, StayWithinAFewUnitsOfTheLibraryOverTheFloatRange) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> exponent(-87.0f, 88.0f);
    double worstLog = 0, worstExp = 0;
    for (int i = 0; i < 200000; ++i) {
        const float y = exponent(random);
        const float x = std::exp(y);
        const double log = std::log(double(x));
        worstLog = std::max(worstLog, std::abs(Ovidane::FastMath::Log(x) - log) /
                                          std::max(1.0, std::abs(log)));
        const double exp = std::exp(double(y));
        worstExp = std::max(worstExp, std::abs(Ovidane::FastMath::Exp(y) - exp) / exp);
    }
    EXPECT_LT(worstLog, 3e-7);
    EXPECT_LT(worstExp, 5e-7);
    EXPECT_EQ(Ovidane::FastMath::Log(1.0f), 0.0f);
    EXPECT_NEAR(Ovidane::FastMath::Log(0.0f), std::log(1.17549435e-38f), 1e-4);
    EXPECT_GT(Ovidane::FastMath::Exp(1000.0f), 1e38f);
    EXPECT_TRUE(std::isfinite(Ovidane::FastMath::Exp(1000.0f)));
    EXPECT_GE(Ovidane::FastMath::Exp(-1000.0f), 0.0f);
    EXPECT_LT(Ovidane::FastMath::Exp(-1000.0f), 1e-37f);
}
