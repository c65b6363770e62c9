#include <gtest/gtest.h>

#include "support/TestImages.h"
#include "decon/cImageNormalizationConstraint.h"
#include "decon/cIntensityCorrectionConstraint.h"
#include "decon/cTLBInversionConstraint.h"

using namespace Ovidane;
using namespace OvidaneTest;

TEST(cTLBInversionConstraint, MirrorsGreyValuesWithinTheRangeAndFloorsAtTheGuard) {
    cFloatImagePtr image = MakeImage({5, 1, 1}, [](uint32_t x, uint32_t, uint32_t) {
        const float values[5] = {10, 100, 55, 200, 110};
        return values[x];
    });
    cTLBInversionConstraint(10.0f, 100.0f).Apply(image);
    // 110 lands on exactly 0, which is below the guard too.
    ExpectPixels(
        image,
        {{0, 0, 0, 100}, {1, 0, 0, 10}, {2, 0, 0, 55}, {3, 0, 0, 1e-20f}, {4, 0, 0, 1e-20f}});
}

TEST(cIntensityCorrectionConstraint, MultipliesEachSliceByTheFactorOfItsStackSlice) {
    // Factor of stack slice z: 1 + z / 10.
    const cFloatImagePtr curve =
        MakeImage({1, 1, 10}, [](uint32_t, uint32_t, uint32_t z) { return 1.0f + 0.1f * z; });

    // A subvolume holding stack slices 4 to 6, and a single plane of stack slice 7.
    cFloatImagePtr image = Constant({2, 2, 3}, 2.0f), plane = Constant({2, 2, 1}, 2.0f);
    cIntensityCorrectionConstraint(curve, 4, 6).Apply(image);
    cIntensityCorrectionConstraint(curve, 7, 7).Apply(plane);
    for (uint32_t z = 0; z < 3; ++z)
        EXPECT_FLOAT_EQ(At(image, 1, 1, z), 2.0f * At(curve, 0, 0, 4 + z)) << z;
    EXPECT_FLOAT_EQ(At(plane, 0, 0, 0), 2.0f * At(curve, 0, 0, 7));

    // A range past the image's slices corrects those it has; one past the curve is refused.
    cIntensityCorrectionConstraint longer(curve, 8, 20);
    cFloatImagePtr two = Constant({2, 2, 2}, 1.0f), three = Constant({2, 2, 3}, 1.0f), none;
    longer.Apply(two);
    EXPECT_FLOAT_EQ(At(two, 0, 0, 1), At(curve, 0, 0, 9));
    EXPECT_EQ(FailureOf([&] { longer.Apply(three); }), "Invalid Dimensions in Apply");
    EXPECT_EQ(FailureOf([&] { longer.Apply(none); }), "NULL input image in Apply");
    EXPECT_EQ(FailureOf([&] { cIntensityCorrectionConstraint(none, 0, 0).Apply(two); }),
              "NULL input image in Apply");
}
