#include <gtest/gtest.h>

#include "decon/cImageNonNegativityCompressionConstraint.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

TEST(cImageNonNegativityCompressionConstraint, BendsLowValuesOrRaisesATransmittedLightImage) {
    // Minimum -2, maximum 8: from t = 0.1·min(8, 2) = 0.2 up values stay; below, a parabola
    // runs from 0 at the minimum to t.
    cFloatImagePtr image = MakeImage({4, 1, 1}, [](uint32_t x, uint32_t, uint32_t) {
        const float values[4] = {-2.0f, -1.0f, 0.5f, 8.0f};
        return values[x];
    });
    cImageNonNegativityCompressionConstraint constraint(1000.0f);
    constraint.Apply(image);
    ExpectPixels(image, {{0, 0, 0, 0}, {2, 0, 0, 0.5f}, {3, 0, 0, 8}});
    EXPECT_NEAR(At(image, 1, 0, 0), 0.2f / (2.2f * 2.2f), 1e-6f);
    EXPECT_EQ(constraint.GetPedestal(), 0.0f);

    // Transmitted light: 5 percent at -20 raise the image by 18, reported as the pedestal
    // -18; the raised -2 lands on the floor of 0.1 and 50 becomes 68.
    cFloatImagePtr transmitted = MakeImage({10, 10, 1}, [](uint32_t x, uint32_t y, uint32_t) {
        return y * 10 + x < 5 ? -20.0f : 50.0f;
    });
    constraint.SetTransmittedLight(true);
    constraint.Apply(transmitted);
    EXPECT_FLOAT_EQ(constraint.GetPedestal(), -18.0f);
    EXPECT_FLOAT_EQ(At(transmitted, 0, 0, 0), 0.1f);
    EXPECT_FLOAT_EQ(At(transmitted, 9, 9, 0), 68.0f);

    // The original sum must be positive, in the constructor's value and in a new one.
    cImageNonNegativityCompressionConstraint negative(-5.0f);
    EXPECT_EQ(FailureOf([&] { negative.Setup(); }),
              "Invalid Original Image Sum in cImageNonNegativityCompressionConstraint");
    negative.SetOriginalImageSum(50.0f);
    EXPECT_EQ(FailureOf([&] { negative.Setup(); }), "");
    EXPECT_EQ(FailureOf([&] { negative.SetOriginalImageSum(0.0f); }),
              "Invalid Original Image Sum in SetOriginalImageSum");
    EXPECT_EQ(negative.GetOriginalImageSum(), 50.0f);
}
