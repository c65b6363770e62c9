#include <gtest/gtest.h>

#include <vector>

#include "ConstraintTestImages.h"
#include "decon/cAxialSumNormalizationConstraint.h"
#include "decon/cRadialAverageConstraint.h"

using namespace Ovidane;
using namespace ConstraintTest;

namespace {

// A 3 x 2 slice pattern of sum 6 scaled to each slice's wanted sum, so that a uniform scaling
// of a slice shows in every pixel.
cFloatImagePtr WithSliceSums(const std::vector<float>& sums) {
    const float pattern[2][3] = {{0.5f, 1.0f, 1.5f}, {2.0f, 0.25f, 0.75f}};
    return MakeImage(
        {3, 2, static_cast<uint32_t>(sums.size())},
        [&](uint32_t x, uint32_t y, uint32_t z) { return pattern[y][x] * sums[z] / 6; });
}

} // namespace

TEST(cAxialSumNormalizationConstraint, SliceSumsFallAwayFromTheCentreInBothDirections) {
    // Upwards (slices 1 to 3): 4 is below 10 and becomes the reference; 6 is brighter and
    // is scaled to 4; 2 is below. Downwards (slices 7 to 4): 3 is below 10; 5 is scaled to
    // 3; an empty slice becomes the reference, so the brighter slice after it goes to 0.
    const std::vector<float> sums{10, 4, 6, 2, 7, 0, 5, 3};
    const std::vector<float> expected{10, 4, 4, 2, 0, 0, 3, 3};
    cFloatImagePtr image = WithSliceSums(sums);
    const cFloatImagePtr before = Copy(image);
    cAxialSumNormalizationConstraint constraint;
    constraint.Setup();
    constraint.Apply(image);
    for (uint32_t z = 0; z < sums.size(); ++z) {
        EXPECT_NEAR(SliceSum(image, z), expected[z], 1e-5) << z;
        const float factor = sums[z] == 0 ? 1.0f : expected[z] / sums[z];
        for (uint32_t y = 0; y < 2; ++y)
            for (uint32_t x = 0; x < 3; ++x)
                EXPECT_NEAR(At(image, x, y, z), At(before, x, y, z) * factor, 1e-6) << z;
    }

    // Two slices: the other one is held to the centre's sum. A brighter neighbour seen
    // only from the far side: with three slices, slice 1 is compared with slice 2.
    cFloatImagePtr two = WithSliceSums({2, 5});
    constraint.Apply(two);
    EXPECT_NEAR(SliceSum(two, 1), 2.0, 1e-6);
    cFloatImagePtr three = WithSliceSums({9, 4, 3});
    constraint.Apply(three);
    EXPECT_NEAR(SliceSum(three, 1), 3.0, 1e-6);
    EXPECT_NEAR(SliceSum(three, 2), 3.0, 1e-6);

    // A single plane is its own centre and stays as it was.
    cFloatImagePtr single = WithSliceSums({5});
    constraint.Apply(single);
    EXPECT_NEAR(SliceSum(single, 0), 5.0, 1e-6);

    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { constraint.Apply(none); }), "NULL input image in Apply");
}

TEST(cRadialAverageConstraint, SlicesBecomeSymmetricAboutTheWrapAroundOrigin) {
    const cImageDimensions size{8, 8, 2};
    cFloatImagePtr image = Random(size, 11, 0.0f, 1.0f);
    const cFloatImagePtr before = Copy(image);
    cRadialAverageConstraint constraint;
    constraint.Apply(image);
    for (uint32_t z = 0; z < size.z; ++z) {
        EXPECT_EQ(At(image, 0, 0, z), At(before, 0, 0, z));
        // The four pixels at distance 1 on the axes share their mean.
        const float axis = (At(before, 1, 0, z) + At(before, 7, 0, z) + At(before, 0, 1, z) +
                            At(before, 0, 7, z)) /
                           4;
        const uint32_t onAxes[4][2] = {{1, 0}, {7, 0}, {0, 1}, {0, 7}};
        for (const auto& p : onAxes)
            EXPECT_NEAR(At(image, p[0], p[1], z), axis, 1e-6);
        // And the eight pixels at (1, 2) and its mirror images.
        EXPECT_NEAR(At(image, 1, 2, z), At(image, 6, 7, z), 1e-6);
        EXPECT_NEAR(At(image, 2, 1, z), At(image, 7, 6, z), 1e-6);
        EXPECT_NEAR(At(image, 1, 2, z), At(image, 2, 7, z), 1e-6);
        EXPECT_NEAR(SliceSum(image, z), SliceSum(before, z), 1e-4);
    }
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { constraint.Apply(none); }), "NULL input image in Apply");
}
