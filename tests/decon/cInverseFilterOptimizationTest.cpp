#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "core/DeconKeys.h"
#include "core/cException.h"
#include "decon/cInverseFilterOptimization.h"
#include "decon/cWienerKEstimate.h"
#include "math/cFFTManager.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

const cImageDimensions kSize{16, 16, 4};

// A Gaussian of sum 1 around the origin in wrap-around order, sigma in pixels.
cFloatImagePtr WrappedGaussian(const cImageDimensions& size, float sigmaXY, float sigmaZ) {
    cFloatImagePtr psf = MakeImage(size);
    double sum = 0;
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x) {
                auto d = [](uint32_t i, uint32_t n) {
                    return static_cast<float>(i <= n / 2 ? i : n - i);
                };
                const float r2 = (d(x, size.x) * d(x, size.x) + d(y, size.y) * d(y, size.y)) /
                                     (sigmaXY * sigmaXY) +
                                 d(z, size.z) * d(z, size.z) / (sigmaZ * sigmaZ);
                At(psf, x, y, z) = std::exp(-0.5f * r2);
                sum += At(psf, x, y, z);
            }
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                At(psf, x, y, z) = static_cast<float>(At(psf, x, y, z) / sum);
    return psf;
}

uint32_t Bits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

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
    const uint32_t expectedBits[] = {0x37A7C5AC, 0x3951B717, 0x3B03126F};
    for (int32_t level = DEC_FLAG_NOISE_LEVEL_LOW; level <= DEC_FLAG_NOISE_LEVEL_HIGH; ++level) {
        optimization.SetNoiseLevel(level);
        EXPECT_EQ(Bits(optimization.ChooseK(original, psf)), expectedBits[level - 50]) << level;
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
    cFloatImagePtr psf = WrappedGaussian(kSize, 1.5f, 1.0f);
    cInverseFilterOptimization optimization;
    optimization.SetZRange(0, kSize.z - 1);
    EXPECT_FLOAT_EQ(optimization.ChooseK(original, psf), 0.004f);
    // A factor only ever raises K, to 4e-5 per unit.
    optimization.SetRegularizationFactor(1000.0f);
    EXPECT_FLOAT_EQ(optimization.ChooseK(original, psf), 0.04f);
}
