#include <gtest/gtest.h>

#include <vector>

#include "ConstraintTestImages.h"
#include "decon/c3DPsfHourglassSpaceConstraint.h"
#include "decon/cAverageMaskedBackgroundSubtractionConstraint.h"
#include "decon/cMinimumIntensityBackgroundSubtractionConstraint.h"
#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"

using namespace Ovidane;
using namespace ConstraintTest;

namespace {

cFloatImagePtr Row(const std::vector<float>& values) {
    return MakeImage({static_cast<uint32_t>(values.size()), 1, 1},
                     [&](uint32_t x, uint32_t, uint32_t) { return values[x]; });
}

std::vector<float> Values(const cFloatImagePtr& row) {
    std::vector<float> values;
    for (uint32_t x = 0; x < row->GetSizeX(); ++x)
        values.push_back(At(row, x, 0, 0));
    return values;
}

} // namespace

TEST(BackgroundSubtraction, LevelsAreSubtractedAndWhatFallsBelowZeroBecomesZero) {
    // A given level; a level of 0 only clears the negative pixels.
    cFloatImagePtr image = Row({3, 5, 8, 20, -1});
    cSpecifiedValueBackgroundSubtractionConstraint five(5.0f);
    five.Apply(image);
    EXPECT_EQ(Values(image), (std::vector<float>{0, 0, 3, 15, 0}));
    image = Row({-2.5f, 0, 1.5f, -0.001f});
    cSpecifiedValueBackgroundSubtractionConstraint zero(0.0f);
    zero.Apply(image);
    EXPECT_EQ(Values(image), (std::vector<float>{0, 0, 1.5f, 0}));

    // The image's minimum: afterwards the minimum is 0, also when it was negative.
    cMinimumIntensityBackgroundSubtractionConstraint minimum;
    image = Row({7.5f, 2.5f, 12.5f});
    minimum.Apply(image);
    EXPECT_EQ(Values(image), (std::vector<float>{5, 0, 10}));
    image = Row({1, -3, 4});
    minimum.Apply(image);
    EXPECT_EQ(Values(image), (std::vector<float>{4, 0, 7}));

    // The mean of the pixels outside the mask, where it is 0: (2 + 4) / 2 = 3.
    cAverageMaskedBackgroundSubtractionConstraint masked;
    image = Row({2, 10, 4, 20});
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { masked.Apply(image); }), "NULL input image in Apply");
    masked.SetMask(Row({0, 1, 0, 1}));
    masked.Apply(image);
    EXPECT_EQ(Values(image), (std::vector<float>{0, 7, 1, 17}));
    masked.SetMask(none);
    EXPECT_TRUE(masked.GetMask().IsNull());

    for (cConstraint* constraint : std::vector<cConstraint*>{&five, &minimum, &masked})
        EXPECT_EQ(FailureOf([&] { constraint->Apply(none); }), "NULL input image in Apply");
}

TEST(BackgroundSubtraction, MaskFromTheHourglassIsTheOneItDrawsLater) {
    // The order in which a PSF's pre-processing is wired: the hourglass's mask goes to the
    // background subtraction before the hourglass's Setup draws it.
    const cImageDimensions size{16, 16, 4};
    c3DPsfHourglassSpaceConstraint hourglass(0.1f, 0.1f, 0.2f, 1.0f, 1.33f, 0.5f, 1.0f, size.x,
                                             size.y, size.z, false, false);
    cAverageMaskedBackgroundSubtractionConstraint background;
    background.SetMask(hourglass.GetMask());
    hourglass.Setup();

    // 100 inside the hourglass over a background of 5: the background goes, the signal
    // keeps 95. A mask still empty of its shape would have mixed the signal into the level.
    cFloatImagePtr psf = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        return At(hourglass.GetMask(), x, y, z) == 1.0f ? 100.0f : 5.0f;
    });
    background.Apply(psf);
    EXPECT_EQ(At(psf, 0, 0, 0), 95.0f);
    EXPECT_EQ(At(psf, 2, 15, 1), 95.0f);
    EXPECT_EQ(At(psf, 8, 8, 0), 0.0f);
    EXPECT_EQ(Sum(psf), 95.0 * Sum(hourglass.GetMask()));
}
