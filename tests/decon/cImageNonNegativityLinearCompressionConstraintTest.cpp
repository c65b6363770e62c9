#include <gtest/gtest.h>

#include <utility>

#include "ConstraintTestImages.h"
#include "decon/cImageNonNegativityCompressionConstraint.h"
#include "decon/cImageNonNegativityLinearCompressionConstraint.h"

using namespace Ovidane;
using namespace ConstraintTest;

namespace {

// 10 x `lines` pixels of `rest`, the first `negatives` of them at `low` instead.
cFloatImagePtr WithNegatives(int negatives, float low = -1.0f, float rest = 10.0f,
                             uint32_t lines = 10) {
    return MakeImage({10, lines, 1}, [=](uint32_t x, uint32_t y, uint32_t) {
        return static_cast<int>(y * 10 + x) < negatives ? low : rest;
    });
}

} // namespace

TEST(cImageNonNegativityLinearCompressionConstraint, ToleratesTwoPercentAndRescalesAboveThat) {
    // 1 percent of the pixels negative, and 1.9 percent, just short of the limit: the image
    // stays as it was, negatives included.
    for (auto [negatives, lines] : {std::pair<int, uint32_t>{1, 10}, {19, 100}}) {
        cFloatImagePtr image = WithNegatives(negatives, -1.0f, 10.0f, lines);
        cImageNonNegativityLinearCompressionConstraint constraint(static_cast<float>(Sum(image)));
        constraint.Setup();
        constraint.Apply(image);
        EXPECT_EQ(At(image, 0, 0, 0), -1.0f) << negatives;
        EXPECT_EQ(At(image, 8, 1, 0), negatives > 10 ? -1.0f : 10.0f) << negatives;
        EXPECT_EQ(At(image, 9, 9, 0), 10.0f) << negatives;
    }

    // Three: raised by the pedestal 0.9·(-1), clipped at 0 and scaled back so that the
    // image keeps the original sum, here up to the clipped 0.1 of three pixels.
    cFloatImagePtr image = WithNegatives(3);
    const float originalSum = static_cast<float>(Sum(image)); // 967
    cImageNonNegativityLinearCompressionConstraint constraint(originalSum);
    constraint.Apply(image);
    const float scale = originalSum / (originalSum + 0.9f * 100);
    for (uint32_t x = 0; x < 3; ++x)
        EXPECT_EQ(At(image, x, 0, 0), 0.0f);
    EXPECT_NEAR(At(image, 5, 5, 0), 10.9f * scale, 1e-4f);
    EXPECT_NEAR(Sum(image), originalSum, 0.001 * originalSum);

    // An image without negative pixels is left alone.
    cFloatImagePtr positive = WithNegatives(0);
    constraint.Apply(positive);
    EXPECT_EQ(Sum(positive), 1000.0);
}

TEST(cImageNonNegativityLinearCompressionConstraint, RefusesSumsThatAreNotPositive) {
    cImageNonNegativityLinearCompressionConstraint zero(0.0f);
    EXPECT_EQ(FailureOf([&] { zero.Setup(); }),
              "Invalid Original Image Sum in cImageNonNegativityLinearCompressionConstraint");
    cImageNonNegativityCompressionConstraint negative(-5.0f);
    EXPECT_EQ(FailureOf([&] { negative.Setup(); }),
              "Invalid Original Image Sum in cImageNonNegativityCompressionConstraint");
    negative.SetOriginalImageSum(50.0f);
    EXPECT_EQ(FailureOf([&] { negative.Setup(); }), "");
    EXPECT_EQ(FailureOf([&] { negative.SetOriginalImageSum(0.0f); }),
              "Invalid Original Image Sum in SetOriginalImageSum");
    EXPECT_EQ(negative.GetOriginalImageSum(), 50.0f);

    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { zero.Apply(none); }), "NULL input image in Apply");
    EXPECT_EQ(FailureOf([&] { negative.Apply(none); }), "NULL input image in Apply");
}

TEST(cImageNonNegativityCompressionConstraint, BendsLowValuesUpOrRaisesATransmittedLightImage) {
    // Minimum -2, maximum 8: values from t = 0.1·min(8, 2) = 0.2 up stay, below it they
    // follow a parabola from 0 at the minimum to t.
    cFloatImagePtr image = MakeImage({4, 1, 1}, [](uint32_t x, uint32_t, uint32_t) {
        const float values[4] = {-2.0f, -1.0f, 0.5f, 8.0f};
        return values[x];
    });
    cImageNonNegativityCompressionConstraint constraint(1000.0f);
    constraint.Apply(image);
    EXPECT_EQ(At(image, 0, 0, 0), 0.0f);
    const float v = 1.0f / 2.2f;
    EXPECT_NEAR(At(image, 1, 0, 0), v * v * 0.2f, 1e-6f);
    EXPECT_EQ(At(image, 2, 0, 0), 0.5f);
    EXPECT_EQ(At(image, 3, 0, 0), 8.0f);
    EXPECT_EQ(constraint.GetPedestal(), 0.0f);

    // Transmitted light: 5 % of the pixels at -20 raise the image by 18 (the pedestal
    // -18 is reported), the raised -2 lands on the floor of 0.1 and 50 becomes 68.
    cFloatImagePtr transmitted = WithNegatives(5, -20.0f, 50.0f);
    constraint.SetTransmittedLight(true);
    constraint.Apply(transmitted);
    EXPECT_FLOAT_EQ(constraint.GetPedestal(), -18.0f);
    EXPECT_FLOAT_EQ(At(transmitted, 0, 0, 0), 0.1f);
    EXPECT_FLOAT_EQ(At(transmitted, 9, 9, 0), 68.0f);
}
