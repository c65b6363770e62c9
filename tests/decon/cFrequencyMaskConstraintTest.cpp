#include <gtest/gtest.h>

#include <cmath>

#include "support/TestImages.h"
#include "decon/c3DDvorakBandWidthConstraint.h"
#include "decon/c3DPsfBandWidthConstraintFromImagingParameters.h"
#include "math/cFFTManager.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// An oil objective. With 32 x 32 x 16 pixels of 0.1 x 0.1 x 0.3 µm the frequency steps are
// 0.3125 and 0.2083 per µm, the passband radius 2·NA/λ is 4.615 and the missing cone's slope
// |tan(π/2 − asin(NA/n))| is 0.7707.
constexpr float kNA = 1.2f, kN = 1.515f, kLambda = 0.52f;

class BandLimit : public ::testing::Test {
protected:
    void SetUp() override { cFFTManager::Instance().ReleaseThreadInstances(); }
    void TearDown() override { cFFTManager::Instance().ReleaseThreadInstances(); }
};

} // namespace

TEST_F(BandLimit, MasksFollowTheOpticsAndAlwaysKeepTheZeroFrequency) {
    c3DPsfBandWidthConstraintFromImagingParameters widefield(0.1f, 0.1f, 0.3f, kNA, kN, kLambda, 32,
                                                             32, 16, false, false);
    widefield.Setup();
    const cFloatImagePtr wide = widefield.GetMask();
    // Half height NA²/(2·λ·n) = 0.914, that is up to 4 axial steps.
    ExpectPixels(wide, {{0, 0, 0, 1},     // the cone's tip, forced back on
                        {0, 0, 1, 0},     // on the axis: the missing cone
                        {1, 0, 3, 0},     // r 0.31 within the cone's 0.48
                        {1, 0, 1, 1},     // r 0.31 beyond the cone's 0.16
                        {8, 0, 12, 1},    // a 0.83, wrapped
                        {8, 0, 5, 0},     // a 1.04
                        {14, 0, 0, 1},    // r 4.38
                        {17, 0, 0, 0},    // r 4.69, wrapped
                        {11, 21, 0, 0}}); // r 4.86

    // Without n in the half height (1.385), and the cone cleared only above the axial
    // frequency 3/(2·d), d = X·0.5·dx·slope·3 = 3.70, that is above 0.4055.
    c3DDvorakBandWidthConstraint highNA(0.1f, 0.1f, 0.3f, kNA, kN, kLambda, 32, 32, 16, false,
                                        false);
    highNA.Setup();
    const cFloatImagePtr high = highNA.GetMask();
    ExpectPixels(high, {{0, 0, 0, 1}, {0, 0, 15, 1}, {0, 0, 2, 0}, {8, 0, 6, 1}, {8, 0, 7, 0}});
    highNA.Setup(); // leaves the drawn mask alone
    EXPECT_EQ(highNA.GetMask().Get(), high.Get());

    // NA equal to n: the slope is exactly 0 and the whole axis but the origin goes.
    c3DDvorakBandWidthConstraint full(0.1f, 0.1f, 0.3f, kN, kN, kLambda, 32, 32, 16, false, false);
    full.Setup();
    ExpectPixels(full.GetMask(), {{0, 0, 0, 1}, {0, 0, 1, 0}});
}

TEST_F(BandLimit, ApplyKeepsExactlyThePassbandOfTheSpectrum) {
    const cImageDimensions size{16, 16, 8};
    cFFTManager::Instance().AddInstance(size, 1, 3);
    cFFTManager::Instance().InitializePlans();
    const cFloatImagePtr original = Random(size, 7, 0.0f, 1.0f);
    cFloatImagePtr psf = Copy(original);
    c3DPsfBandWidthConstraintFromImagingParameters limit(0.1f, 0.1f, 0.2f, kNA, kN, kLambda, size.x,
                                                         size.y, size.z, false, false);
    limit.Apply(psf); // draws the mask on first use

    cFloatImagePtr re0 = Constant(size, 0), im0 = Constant(size, 0);
    cFloatImagePtr re1 = Constant(size, 0), im1 = Constant(size, 0);
    cFFTManager::Instance().FFTFwd(original, cFloatImagePtr(), re0, im0);
    cFFTManager::Instance().FFTFwd(psf, cFloatImagePtr(), re1, im1);
    const cFloatImagePtr mask = limit.GetMask();
    const float tolerance = 1e-5f * At(re0, 0, 0, 0);
    int passed = 0;
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x) {
                const float keep = At(mask, x, y, z);
                passed += keep == 1.0f;
                ASSERT_NEAR(At(re1, x, y, z), keep * At(re0, x, y, z), tolerance);
                ASSERT_NEAR(At(im1, x, y, z), keep * At(im0, x, y, z), tolerance);
            }
    EXPECT_GT(passed, 10);
    EXPECT_LT(passed, 16 * 16 * 8 - 10);

}
