#include <gtest/gtest.h>

#include "IterativeTestScene.h"
#include "core/DeconKeys.h"
#include "core/cException.h"
#include "decon/cInverseFilterOptimization.h"
#include "decon/cWienerKEstimate.h"
#include "math/cFFTManager.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

const cImageDimensions kSize{16, 16, 4};

class cInverseFilterOptimizationTest : public testing::Test {
protected:
    void SetUp() override {
        cFFTManager::Instance().AddInstance(kSize, 1, 3);
        cFFTManager::Instance().InitializePlans();
    }
    void TearDown() override { cFFTManager::Instance().ReleaseThreadInstances(); }
};

} // namespace

// The fixed classes are a decade apart and don't look at the data; the caller's own class
// is the factor. Levels and values out of range leave the settings as they were.
TEST_F(cInverseFilterOptimizationTest, FixedNoiseClassesAndSettersOutOfRange) {
    cFloatImagePtr original = Random(kSize, 7, 0.0f, 1.0f), psf = MakeImage(kSize);
    cInverseFilterOptimization optimization;
    const float expected[] = {2e-5f, 2e-4f, 2e-3f}; // compared exactly
    for (int32_t level = DEC_FLAG_NOISE_LEVEL_LOW; level <= DEC_FLAG_NOISE_LEVEL_HIGH; ++level) {
        optimization.SetNoiseLevel(level);
        EXPECT_EQ(optimization.ChooseK(original, psf), expected[level - 50]) << level;
    }
    optimization.SetNoiseLevel(49);
    optimization.SetNoiseLevel(55);
    EXPECT_EQ(optimization.GetNoiseLevel(), DEC_FLAG_NOISE_LEVEL_HIGH);

    optimization.SetNoiseLevel(DEC_FLAG_NOISE_LEVEL_OTHER);
    optimization.SetRegularizationFactor(0.01f);
    optimization.SetRegularizationFactor(0.0f);
    optimization.SetRegularizationFactor(-1.0f);
    EXPECT_EQ(optimization.ChooseK(original, psf), 0.01f);
}

TEST_F(cInverseFilterOptimizationTest, ApplyRefusesMissingAndMismatchedImages) {
    cInverseFilterOptimization optimization;
    optimization.Initialize();
    cFloatImagePtr image = MakeImage(kSize), psf = MakeImage(kSize), none;
    cFloatImagePtr small = MakeImage(cImageDimensions{16, 16, 2});
    EXPECT_NE(FailureOf([&] { optimization.Apply(none, image, psf); }), "");
    EXPECT_NE(FailureOf([&] { optimization.Apply(image, image, none); }), "");
    EXPECT_NE(FailureOf([&] { optimization.Apply(image, image, small); }), "");
    EXPECT_NE(FailureOf([&] { optimization.Apply(small, image, psf); }), "");
    // An estimate made of stacks instead of planes has nothing to work on.
    cWienerKEstimate estimate(image, psf, 1.0f, 1.0f, 1.0f);
    EXPECT_THROW(estimate.Estimate(), cException);
}

// An image of one bright pixel has the same power at every frequency: it never rises to
// twice its own noise floor, so the estimate takes the PSF's power at frequency 0 (1 for a
// PSF of sum 1), held at the ceiling 0.001, and K is four times that.
TEST_F(cInverseFilterOptimizationTest, EstimateOfAFlatSpectrumIsTheCeiling) {
    cFloatImagePtr original = MakeImage(kSize);
    At(original, 5, 9, 1) = 100.0f;
    cFloatImagePtr psf = IterativeTest::OriginGaussian(kSize, 1.5f, 1.0f);
    cInverseFilterOptimization optimization;
    optimization.SetZRange(0, kSize.z - 1);
    EXPECT_FLOAT_EQ(optimization.ChooseK(original, psf), 0.004f);
    // A factor only ever raises K, to 4e-5 per unit.
    optimization.SetRegularizationFactor(1000.0f);
    EXPECT_FLOAT_EQ(optimization.ChooseK(original, psf), 0.04f);
}
