#include <gtest/gtest.h>

#include "support/TestImages.h"
#include "decon/c3DPsfHourglassSpaceConstraint.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// NA 1.0 in water at λ 0.5 µm, minimum radius 1: a waist of 0.61·λ/NA = 0.305 µm opening by
// tan(asin(NA/n)) = 1.140 µm per µm of depth. With spacings 0.1, 0.1, 0.2 µm the slices at
// wrap distance 0, 1, 2 reach 0.305, 0.533 and 0.761 µm from the axis.
constexpr float kNA = 1.0f, kN = 1.33f, kLambda = 0.5f;

c3DPsfHourglassSpaceConstraint Hourglass(uint32_t depth, bool confocal, bool skip = false) {
    return c3DPsfHourglassSpaceConstraint(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 1.0f, 20, 20, depth,
                                          confocal, skip);
}

} // namespace

TEST(c3DPsfHourglassSpaceConstraint, KeepsWhatLiesInsideTheLightCone) {
    c3DPsfHourglassSpaceConstraint hourglass = Hourglass(6, false);
    // The mask handed out before Setup is the one Setup draws.
    const cFloatImagePtr early = hourglass.GetMask();
    hourglass.Setup();
    cFloatImagePtr image = Constant({20, 20, 6}, 3.0f);
    hourglass.Apply(image);
    ExpectPixels(image, {{3, 0, 0, 3},
                         {0, 17, 0, 3},
                         {3, 1, 0, 0}, // r 0.30; 0.32
                         {5, 0, 5, 3},
                         {4, 3, 1, 3},
                         {6, 0, 1, 0},
                         {4, 4, 1, 0}, // 0.533
                         {7, 0, 2, 3},
                         {15, 15, 4, 3},
                         {8, 0, 2, 0},
                         {14, 15, 4, 0}}); // 0.761
    EXPECT_EQ(At(early, 15, 15, 4), 1.0f);

    // Confocal: a cylinder one pixel wider than the waist, 0.405 µm, through every slice.
    c3DPsfHourglassSpaceConstraint cylinder = Hourglass(6, true);
    cylinder.Setup();
    for (uint32_t z = 0; z < 6; ++z)
        ExpectPixels(cylinder.GetMask(), {{4, 0, z, 1}, {3, 3, z, 0}, {5, 0, z, 0}});

    // As a mere mask maker the object leaves images alone.
    c3DPsfHourglassSpaceConstraint maker = Hourglass(6, false, true);
    maker.Setup();
    maker.Apply(image);
    EXPECT_EQ(At(image, 3, 0, 0), 3.0f);
}
