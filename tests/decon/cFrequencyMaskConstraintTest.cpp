#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "ConstraintTestImages.h"
#include "decon/c3DDvorakBandWidthConstraint.h"
#include "decon/c3DPsfBandWidthConstraintFromImagingParameters.h"
#include "math/cFFTManager.h"

using namespace Ovidane;
using namespace ConstraintTest;

namespace {

// Optics of an oil objective; with 32 x 32 x 16 pixels of 0.1 x 0.1 x 0.3 µm the frequency
// steps are 0.3125 and 0.2083 per µm, the lateral passband radius 2·NA/λ = 4.615 and the
// missing cone's slope |tan(π/2 − asin(NA/n))| = 0.7707.
constexpr float kNA = 1.2f, kN = 1.515f, kLambda = 0.52f;

class BandLimit : public ::testing::Test {
protected:
    void SetUp() override { cFFTManager::Instance().ReleaseThreadInstances(); }
    void TearDown() override { cFFTManager::Instance().ReleaseThreadInstances(); }

    static void Transforms(const cImageDimensions& size) {
        cFFTManager::Instance().AddInstance(size, 1, 3);
        cFFTManager::Instance().InitializePlans();
    }
};

} // namespace

TEST_F(BandLimit, MasksFollowTheOpticsAndAlwaysKeepTheZeroFrequency) {
    c3DPsfBandWidthConstraintFromImagingParameters widefield(0.1f, 0.1f, 0.3f, kNA, kN, kLambda, 32,
                                                             32, 16, false, false);
    widefield.Setup();
    const cFloatImagePtr wide = widefield.GetMask();
    ASSERT_FALSE(wide.IsNull());
    // Half height NA²/(2·λ·n) = 0.914: axial distances up to 4 steps (0.833).
    EXPECT_EQ(At(wide, 0, 0, 0), 1.0f);  // inside the cone's tip, forced back on
    EXPECT_EQ(At(wide, 0, 0, 1), 0.0f);  // on the axis: the missing cone
    EXPECT_EQ(At(wide, 1, 0, 3), 0.0f);  // r 0.3125 within the cone's 0.482
    EXPECT_EQ(At(wide, 1, 0, 1), 1.0f);  // r 0.3125 outside the cone's 0.161
    EXPECT_EQ(At(wide, 8, 0, 4), 1.0f);  // a = 0.833
    EXPECT_EQ(At(wide, 8, 0, 12), 1.0f); // the same distance below, wrapped
    EXPECT_EQ(At(wide, 8, 0, 5), 0.0f);  // a = 1.04, above the cylinder
    EXPECT_EQ(At(wide, 8, 0, 6), 0.0f);
    EXPECT_EQ(At(wide, 14, 0, 0), 1.0f);  // r 4.375
    EXPECT_EQ(At(wide, 17, 0, 0), 0.0f);  // wrapped distance 15: r 4.69
    EXPECT_EQ(At(wide, 10, 22, 0), 1.0f); // r 4.42
    EXPECT_EQ(At(wide, 11, 21, 0), 0.0f); // r 4.86

    // Without n in the half height (1.385) and with the cone cleared only above 3/(2·d),
    // d = X·0.5·dx·slope·3 = 3.70, that is above 0.4055: the first axial step survives.
    c3DDvorakBandWidthConstraint highNA(0.1f, 0.1f, 0.3f, kNA, kN, kLambda, 32, 32, 16, false,
                                        false);
    highNA.Setup();
    const cFloatImagePtr high = highNA.GetMask();
    ASSERT_FALSE(high.IsNull());
    EXPECT_EQ(At(high, 0, 0, 0), 1.0f);
    EXPECT_EQ(At(high, 0, 0, 1), 1.0f); // a = 0.208, below the truncation
    EXPECT_EQ(At(high, 0, 0, 15), 1.0f);
    EXPECT_EQ(At(high, 0, 0, 2), 0.0f); // a = 0.417
    EXPECT_EQ(At(high, 1, 0, 3), 0.0f);
    EXPECT_EQ(At(high, 8, 0, 6), 1.0f); // a = 1.25, inside the taller cylinder
    EXPECT_EQ(At(high, 8, 0, 7), 0.0f); // a = 1.46
    // Setup leaves a drawn mask alone.
    highNA.Setup();
    EXPECT_EQ(highNA.GetMask().Get(), high.Get());

    // NA equal to n: the cone's slope is exactly 0 and the whole axis but the origin goes.
    c3DDvorakBandWidthConstraint full(0.1f, 0.1f, 0.3f, kN, kN, kLambda, 32, 32, 16, false, false);
    full.Setup();
    EXPECT_EQ(At(full.GetMask(), 0, 0, 0), 1.0f);
    EXPECT_EQ(At(full.GetMask(), 0, 0, 1), 0.0f);
    EXPECT_EQ(At(full.GetMask(), 1, 0, 1), 1.0f);
}

TEST_F(BandLimit, ApplyRemovesWhatLiesOutsideThePassbandAndKeepsTheRest) {
    const cImageDimensions size{16, 16, 8};
    Transforms(size);
    const cFloatImagePtr original = Random(size, 7, 0.0f, 1.0f);
    cFloatImagePtr psf = Copy(original);
    c3DPsfBandWidthConstraintFromImagingParameters limit(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, size.x,
                                                         size.y, size.z, false, false);
    limit.Setup();
    limit.Apply(psf);
    const cFloatImagePtr mask = limit.GetMask();

    auto spectrum = [&](const cFloatImagePtr& image, cFloatImagePtr& re, cFloatImagePtr& im) {
        re = Constant(size, 0.0f);
        im = Constant(size, 0.0f);
        cFFTManager::Instance().FFTFwd(image, cFloatImagePtr(), re, im);
    };
    cFloatImagePtr re0, im0, re1, im1;
    spectrum(original, re0, im0);
    spectrum(psf, re1, im1);
    const float tolerance = 1e-5f * std::fabs(At(re0, 0, 0, 0));
    int passed = 0, stopped = 0;
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x) {
                const float keep = At(mask, x, y, z);
                (keep == 1.0f ? passed : stopped) += 1;
                EXPECT_NEAR(At(re1, x, y, z), keep * At(re0, x, y, z), tolerance);
                EXPECT_NEAR(At(im1, x, y, z), keep * At(im0, x, y, z), tolerance);
            }
    // Both kinds of frequency occur, so the comparison means something.
    EXPECT_GT(passed, 10);
    EXPECT_GT(stopped, 10);
    EXPECT_NEAR(Sum(psf), Sum(original), 1e-4 * Sum(original));
}

TEST_F(BandLimit, ConfocalLimitWorksOnTheSquareRootAndGivesNoNegativePixel) {
    const cImageDimensions size{16, 16, 8};
    Transforms(size);
    const cFloatImagePtr original = Random(size, 3, 0.0f, 4.0f);
    cFloatImagePtr psf = Copy(original);
    c3DDvorakBandWidthConstraint limit(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, size.x, size.y, size.z,
                                       true, false);
    limit.Apply(psf); // draws its mask on first use
    ASSERT_FALSE(limit.GetMask().IsNull());
    bool changed = false;
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x) {
                EXPECT_GE(At(psf, x, y, z), 0.0f);
                changed = changed || std::fabs(At(psf, x, y, z) - At(original, x, y, z)) > 1e-3f;
            }
    EXPECT_TRUE(changed);
}

TEST_F(BandLimit, RefusedOpticsLeaveNoMaskAndApplyFailsInTheMultiplication) {
    const cImageDimensions size{8, 8, 4};
    Transforms(size);

    // NA above n: the constructor of the high-aperture limit stops quietly, and the other
    // limit's Setup declines without a word.
    c3DDvorakBandWidthConstraint refused(0.1f, 0.1f, 0.2f, 1.6f, kN, kLambda, 8, 8, 4, false,
                                         false);
    refused.Setup();
    EXPECT_TRUE(refused.GetMask().IsNull());
    cFloatImagePtr image = Constant(size, 1.0f);
    EXPECT_EQ(FailureOf([&] { refused.Apply(image); }), "NULL input image in MultiplyImage");

    for (float badSpacing : {0.0f, -0.1f}) {
        c3DPsfBandWidthConstraintFromImagingParameters declined(badSpacing, 0.1f, 0.2f, kNA, kN,
                                                                kLambda, 8, 8, 4, false, false);
        declined.Setup();
        EXPECT_TRUE(declined.GetMask().IsNull());
        EXPECT_EQ(FailureOf([&] { declined.Apply(image); }), "NULL input image in MultiplyImage");
    }

    // A null image: the high-aperture limit passes over it, the other one refuses it.
    c3DDvorakBandWidthConstraint lenient(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 8, 8, 4, false, false);
    cFloatImagePtr none;
    EXPECT_EQ(FailureOf([&] { lenient.Apply(none); }), "");
    c3DPsfBandWidthConstraintFromImagingParameters strict(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 8, 8,
                                                          4, false, false);
    EXPECT_EQ(FailureOf([&] { strict.Apply(none); }), "NULL input image in Apply");

    // A mask of another size than the image.
    c3DPsfBandWidthConstraintFromImagingParameters other(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, 8, 8,
                                                         2, false, false);
    other.Setup();
    EXPECT_EQ(FailureOf([&] { other.Apply(image); }), "Invalid Dimensions in MultiplyImage");
}
