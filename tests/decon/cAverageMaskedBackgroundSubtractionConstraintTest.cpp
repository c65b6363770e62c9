#include <gtest/gtest.h>

#include <vector>

#include "support/TestImages.h"
#include "decon/c3DPsfHourglassSpaceConstraint.h"
#include "decon/cAverageMaskedBackgroundSubtractionConstraint.h"
#include "decon/cMinimumIntensityBackgroundSubtractionConstraint.h"
#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// Applies the constraint to one line of values and answers the line.
std::vector<float> Applied(cConstraint& constraint, const std::vector<float>& values) {
    cFloatImagePtr line = MakeImage({static_cast<uint32_t>(values.size()), 1, 1},
                                    [&](uint32_t x, uint32_t, uint32_t) { return values[x]; });
    constraint.Apply(line);
    std::vector<float> result;
    for (uint32_t x = 0; x < values.size(); ++x)
        result.push_back(At(line, x, 0, 0));
    return result;
}

} // namespace

TEST(BackgroundSubtraction, LevelsAreSubtractedAndWhatFallsBelowZeroBecomesZero) {
    cSpecifiedValueBackgroundSubtractionConstraint five(5.0f), zero(0.0f);
    EXPECT_EQ(Applied(five, {3, 5, 8, 20, -1}), (std::vector<float>{0, 0, 3, 15, 0}));
    EXPECT_EQ(Applied(zero, {-2.5f, 0, 1.5f, -0.001f}), (std::vector<float>{0, 0, 1.5f, 0}));

    // The image's minimum goes to 0, also when it is negative.
    cMinimumIntensityBackgroundSubtractionConstraint minimum;
    EXPECT_EQ(Applied(minimum, {7.5f, 2.5f, 12.5f}), (std::vector<float>{5, 0, 10}));
    EXPECT_EQ(Applied(minimum, {1, -3, 4}), (std::vector<float>{4, 0, 7}));

    // The mean where the mask is 0: (2 + 4) / 2 = 3.
    cAverageMaskedBackgroundSubtractionConstraint masked;
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { Applied(masked, {1}); }), "NULL input image in Apply");
    masked.SetMask(MakeImage({4, 1, 1}, [](uint32_t x, uint32_t, uint32_t) { return x % 2; }));
    EXPECT_EQ(Applied(masked, {2, 10, 4, 20}), (std::vector<float>{0, 7, 1, 17}));

    for (cConstraint* constraint : std::vector<cConstraint*>{&five, &minimum, &masked})
        EXPECT_EQ(FailureOf([&] { constraint->Apply(none); }), "NULL input image in Apply");
}

TEST(BackgroundSubtraction, MaskFromTheHourglassIsTheOneItDrawsLater) {
    // The wiring of a PSF's pre-processing: the mask is handed over before Setup draws it.
    const cImageDimensions size{16, 16, 4};
    c3DPsfHourglassSpaceConstraint hourglass(0.1f, 0.1f, 0.2f, 1.0f, 1.33f, 0.5f, 1.0f, size.x,
                                             size.y, size.z, false, false);
    cAverageMaskedBackgroundSubtractionConstraint background;
    background.SetMask(hourglass.GetMask());
    hourglass.Setup();

    // 100 inside the hourglass over a background of 5: the background goes, 95 stays.
    cFloatImagePtr psf = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        return At(hourglass.GetMask(), x, y, z) == 1.0f ? 100.0f : 5.0f;
    });
    background.Apply(psf);
    ExpectPixels(psf, {{0, 0, 0, 95}, {2, 15, 1, 95}, {8, 8, 0, 0}});
    EXPECT_EQ(Sum(psf), 95.0 * Sum(hourglass.GetMask()));
}
