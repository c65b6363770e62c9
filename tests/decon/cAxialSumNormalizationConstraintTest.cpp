#include <gtest/gtest.h>

#include <vector>

#include "support/TestImages.h"
#include "decon/cAxialSumNormalizationConstraint.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// Slices of an uneven 3 x 2 pattern (sum 6) scaled to the sums given.
cFloatImagePtr WithSliceSums(const std::vector<float>& sums) {
    const float pattern[2][3] = {{0.5f, 1.0f, 1.5f}, {2.0f, 0.25f, 0.75f}};
    return MakeImage(
        {3, 2, static_cast<uint32_t>(sums.size())},
        [&](uint32_t x, uint32_t y, uint32_t z) { return pattern[y][x] * sums[z] / 6; });
}

std::vector<double> SliceSums(const cFloatImagePtr& image) {
    std::vector<double> sums;
    for (uint32_t z = 0; z < image->GetSizeZ(); ++z)
        sums.push_back(Sum(image, z, z));
    return sums;
}

} // namespace

TEST(cAxialSumNormalizationConstraint, SliceSumsFallAwayFromTheCentreInBothDirections) {
    // Upwards (slices 1 to 3): 4 is below 10 and becomes the reference; 6 is scaled to 4; 2
    // is below. Downwards (slices 7 to 4): 3 is below 10; 5 is scaled to 3; an empty slice
    // becomes the reference, so the brighter slice after it goes to 0.
    cFloatImagePtr image = WithSliceSums({10, 4, 6, 2, 7, 0, 5, 3});
    cAxialSumNormalizationConstraint constraint;
    constraint.Apply(image);
    const std::vector<double> expected{10, 4, 4, 2, 0, 0, 3, 3};
    for (uint32_t z = 0; z < 8; ++z)
        EXPECT_NEAR(SliceSums(image)[z], expected[z], 1e-5) << z;
    // A slice is scaled as a whole: its pattern stays.
    EXPECT_NEAR(At(image, 0, 1, 2) / At(image, 1, 0, 2), 2.0f, 1e-6f);

    // With three slices slice 1 is reached only from the far side, after slice 2.
    cFloatImagePtr three = WithSliceSums({9, 4, 3});
    constraint.Apply(three);
    EXPECT_NEAR(SliceSums(three)[1], 3.0, 1e-6);
    // A single plane is its own centre and stays as it was.
    cFloatImagePtr single = WithSliceSums({5});
    constraint.Apply(single);
    EXPECT_NEAR(SliceSums(single)[0], 5.0, 1e-6);

    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { constraint.Apply(none); }), "NULL input image in Apply");
}
