#include <gtest/gtest.h>

#include "ConstraintTestImages.h"
#include "decon/cImageNormalizationConstraint.h"
#include "decon/cIntensityCorrectionConstraint.h"
#include "decon/cTLBInversionConstraint.h"

using namespace Ovidane;
using namespace ConstraintTest;

TEST(cImageNormalizationConstraint, ClearsNegativesAndScalesToTheTarget) {
    const cImageDimensions size{6, 5, 3};
    cFloatImagePtr image = Random(size, 5, -1.0f, 3.0f);
    const cFloatImagePtr before = Copy(image);
    cImageNormalizationConstraint constraint(250.0f);
    constraint.Apply(image);
    EXPECT_NEAR(Sum(image), 250.0, 250.0 * 1e-5);
    // The positive pixels keep their ratios; the negative ones are 0.
    double positive = 0.0;
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                positive += std::max(0.0f, At(before, x, y, z));
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                EXPECT_NEAR(At(image, x, y, z),
                            std::max(0.0f, At(before, x, y, z)) * 250.0 / positive, 1e-4);

    // Nothing to scale: every pixel becomes target / elements per block.
    cFloatImagePtr zero = Constant(size, 0.0f);
    cImageNormalizationConstraint unit(1.0f);
    unit.Apply(zero);
    const float flat = 1.0f / static_cast<float>(zero->GetElementsPerBlock());
    EXPECT_FLOAT_EQ(At(zero, 0, 0, 0), flat);
    EXPECT_FLOAT_EQ(At(zero, 5, 4, 2), flat);

    // A target that isn't positive is not taken.
    EXPECT_EQ(cImageNormalizationConstraint(-3.0f).GetTarget(), 1.0f);
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { unit.Apply(none); }), "NULL input image in Apply");
}

TEST(cTLBInversionConstraint, MirrorsGreyValuesWithinTheRangeAndFloorsAtTheGuard) {
    cFloatImagePtr image = MakeImage({5, 1, 1}, [](uint32_t x, uint32_t, uint32_t) {
        const float values[5] = {10, 100, 55, 200, 110};
        return values[x];
    });
    cTLBInversionConstraint constraint(10.0f, 100.0f);
    constraint.Apply(image);
    EXPECT_EQ(At(image, 0, 0, 0), 100.0f);
    EXPECT_EQ(At(image, 1, 0, 0), 10.0f);
    EXPECT_EQ(At(image, 2, 0, 0), 55.0f);
    EXPECT_EQ(At(image, 3, 0, 0), 1e-20f);
    EXPECT_EQ(At(image, 4, 0, 0), 1e-20f); // exactly 0 is below the guard too
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { constraint.Apply(none); }), "NULL input image in Apply");
}

TEST(cIntensityCorrectionConstraint, MultipliesEachSliceByTheFactorOfItsStackSlice) {
    // Factor of stack slice z: 1 + z / 10.
    const cFloatImagePtr curve =
        MakeImage({1, 1, 10}, [](uint32_t, uint32_t, uint32_t z) { return 1.0f + 0.1f * z; });

    // A subvolume holding stack slices 4 to 6.
    cFloatImagePtr image = Constant({2, 2, 3}, 2.0f);
    cIntensityCorrectionConstraint middle(curve, 4, 6);
    middle.Apply(image);
    for (uint32_t z = 0; z < 3; ++z)
        EXPECT_FLOAT_EQ(At(image, 1, 1, z), 2.0f * At(curve, 0, 0, 4 + z)) << z;

    // A single plane of stack slice 7.
    cFloatImagePtr plane = Constant({2, 2, 1}, 2.0f);
    cIntensityCorrectionConstraint single(curve, 7, 7);
    single.Apply(plane);
    EXPECT_FLOAT_EQ(At(plane, 0, 0, 0), 2.0f * At(curve, 0, 0, 7));

    // A range reaching past the image's slices corrects those it has; one reaching past
    // the curve is refused.
    cFloatImagePtr two = Constant({2, 2, 2}, 1.0f);
    cIntensityCorrectionConstraint longer(curve, 8, 20);
    longer.Apply(two);
    EXPECT_FLOAT_EQ(At(two, 0, 0, 1), At(curve, 0, 0, 9));
    cFloatImagePtr three = Constant({2, 2, 3}, 1.0f);
    EXPECT_EQ(FailureOf([&] { longer.Apply(three); }), "Invalid Dimensions in Apply");

    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { middle.Apply(none); }), "NULL input image in Apply");
    cIntensityCorrectionConstraint withoutCurve(none, 0, 0);
    EXPECT_EQ(FailureOf([&] { withoutCurve.Apply(image); }), "NULL input image in Apply");
}
