#include <gtest/gtest.h>

#include "ConstraintTestImages.h"
#include "decon/c3DPsfDvorakHourglassSpaceConstraint.h"
#include "decon/c3DPsfHourglassSpaceConstraint.h"

using namespace Ovidane;
using namespace ConstraintTest;

namespace {

// NA 1.0 in water (n 1.33) at λ 0.5 µm with a minimum radius of 1: a waist of
// 0.61·λ/NA = 0.305 µm, opening by tan(asin(NA/n)) = 1.140 µm per µm of depth. With
// spacings 0.1, 0.1, 0.2 µm the limits of the slices at wrap distance 0, 1, 2 are 0.305,
// 0.533 and 0.761 µm.
constexpr float kNA = 1.0f, kN = 1.33f, kLambda = 0.5f;
const cImageDimensions kSize{20, 20, 6};

c3DPsfHourglassSpaceConstraint Hourglass(bool confocal, bool skip, const cImageDimensions& size) {
    return c3DPsfHourglassSpaceConstraint(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 1.0f, size.x, size.y,
                                          size.z, confocal, skip);
}

} // namespace

TEST(c3DPsfHourglassSpaceConstraint, KeepsWhatLiesInsideTheLightConeAndClearsTheRest) {
    c3DPsfHourglassSpaceConstraint hourglass = Hourglass(false, false, kSize);
    // The mask handed out before Setup is the one Setup draws.
    const cFloatImagePtr early = hourglass.GetMask();
    hourglass.Setup();
    ASSERT_EQ(early.Get(), hourglass.GetMask().Get());

    cFloatImagePtr image = Constant(kSize, 3.0f);
    hourglass.Apply(image);
    struct Expected {
        uint32_t x, y, z;
        float value;
    };
    for (const Expected& e : {
             Expected{0, 0, 0, 3},
             {3, 0, 0, 3},
             {0, 17, 0, 3}, // r 0.30 at the focus
             {2, 2, 0, 3},
             {3, 1, 0, 0},
             {4, 0, 0, 0}, // r 0.28; 0.32; 0.40
             {5, 0, 1, 3},
             {4, 3, 1, 3},
             {6, 0, 1, 0},
             {4, 4, 1, 0}, // limit 0.533
             {5, 0, 5, 3},
             {6, 0, 5, 0}, // wrapped, distance 1
             {7, 0, 2, 3},
             {5, 5, 2, 3},
             {8, 0, 2, 0},
             {6, 5, 2, 0}, // limit 0.761
             {15, 15, 4, 3},
             {14, 15, 4, 0}, // both axes wrapped
         })
        EXPECT_EQ(At(image, e.x, e.y, e.z), e.value) << e.x << "," << e.y << "," << e.z;
    EXPECT_EQ(At(early, 7, 0, 2), 1.0f);

    // A single plane is the waist's disc.
    c3DPsfHourglassSpaceConstraint plane = Hourglass(false, false, {20, 20, 1});
    plane.Setup();
    EXPECT_EQ(At(plane.GetMask(), 3, 0, 0), 1.0f);
    EXPECT_EQ(At(plane.GetMask(), 2, 18, 0), 1.0f);
    EXPECT_EQ(At(plane.GetMask(), 4, 0, 0), 0.0f);

    // Confocal: a cylinder one pixel wider than the waist (0.405 µm) through every slice.
    c3DPsfHourglassSpaceConstraint cylinder = Hourglass(true, false, kSize);
    cylinder.Setup();
    for (uint32_t z = 0; z < kSize.z; ++z) {
        EXPECT_EQ(At(cylinder.GetMask(), 4, 0, z), 1.0f) << z;
        EXPECT_EQ(At(cylinder.GetMask(), 3, 3, z), 0.0f) << z; // r 0.42
        EXPECT_EQ(At(cylinder.GetMask(), 5, 0, z), 0.0f) << z;
    }

    // As a mere mask maker the object leaves images alone.
    c3DPsfHourglassSpaceConstraint maker = Hourglass(false, true, kSize);
    maker.Setup();
    cFloatImagePtr untouched = Constant(kSize, 3.0f);
    maker.Apply(untouched);
    EXPECT_EQ(At(untouched, 9, 9, 3), 3.0f);
}

TEST(c3DPsfHourglassSpaceConstraint, SetupRefusesArgumentsInItsOrder) {
    auto failure = [](float n, float lambda, float na, float radius, cImageDimensions size,
                      float dz) {
        c3DPsfHourglassSpaceConstraint hourglass(0.1f, 0.1f, dz, na, n, lambda, radius, size.x,
                                                 size.y, size.z, false, false);
        return FailureOf([&] { hourglass.Setup(); });
    };
    const cImageDimensions size{8, 8, 4};
    EXPECT_EQ(failure(0.0f, 0.0f, 0.0f, -1.0f, {}, -1.0f), "Invalid Refractive Index in Setup");
    EXPECT_EQ(failure(kN, 0.0f, 0.0f, -1.0f, {}, -1.0f), "Invalid Lambda in Setup");
    EXPECT_EQ(failure(kN, kLambda, 0.0f, -1.0f, {}, -1.0f), "Invalid Numerical Aperture in Setup");
    EXPECT_EQ(failure(kN, kLambda, 1.4f, -1.0f, {}, -1.0f), "Invalid Numerical Aperture in Setup");
    EXPECT_EQ(failure(kN, kLambda, kNA, -1.0f, {}, -1.0f), "Invalid Minimum Radius in Setup");
    EXPECT_EQ(failure(kN, kLambda, kNA, 1.0f, {8, 0, 4}, -1.0f), "Invalid Dimensions in Setup");
    EXPECT_EQ(failure(kN, kLambda, kNA, 1.0f, size, 0.0f), "Invalid Spacings in Setup");
    EXPECT_EQ(failure(kN, kLambda, kNA, 1.0f, size, 0.2f), "");

    c3DPsfHourglassSpaceConstraint hourglass = Hourglass(false, false, size);
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { hourglass.Apply(none); }), "NULL input image in Apply");
}

TEST(c3DPsfDvorakHourglassSpaceConstraint, DrawsItsMaskOnceAsHourglassOrCylinder) {
    // Factor 1 gives the same waist as above.
    c3DPsfDvorakHourglassSpaceConstraint hourglass(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 1.0f,
                                                   kSize.x, kSize.y, kSize.z, 0);
    cFloatImagePtr image = Constant(kSize, 2.0f);
    hourglass.Apply(image); // draws the mask on first use
    EXPECT_EQ(At(image, 3, 0, 0), 2.0f);
    EXPECT_EQ(At(image, 4, 0, 0), 0.0f);
    EXPECT_EQ(At(image, 7, 0, 4), 2.0f);
    EXPECT_EQ(At(image, 8, 0, 4), 0.0f);
    EXPECT_EQ(FailureOf([&] { hourglass.Setup(); }), "SpaceMask previously Instantiated in Setup");

    // Flat: the waist's disc in every slice; a factor of 2 doubles the waist to 0.61 µm.
    c3DPsfDvorakHourglassSpaceConstraint flat(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 2.0f, kSize.x,
                                              kSize.y, kSize.z, 1);
    flat.Setup();
    for (uint32_t z = 0; z < kSize.z; ++z) {
        EXPECT_EQ(At(flat.GetMask(), 6, 0, z), 1.0f) << z;
        EXPECT_EQ(At(flat.GetMask(), 7, 0, z), 0.0f) << z;
    }

    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { flat.Apply(none); }), "NULL input image in Apply");
}
