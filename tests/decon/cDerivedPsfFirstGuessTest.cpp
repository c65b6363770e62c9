#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <sstream>
#include <vector>

#include "decon/cDerivedPsfFirstGuess.h"
#include "math/cFFTManager.h"

using namespace Ovidane;

namespace {

float At(const cFloatImagePtr& image, uint32_t x, uint32_t y, uint32_t z) {
    return image->GetLinePointer(y, z)[x];
}

} // namespace

TEST(cDerivedPsfFirstGuess, IsTheLiftedCircularAutocorrelationOfTheOriginal) {
    const cImageDimensions size{16, 12, 8};
    cFloatImagePtr original(new cOvdImage<float>(size, "test"));
    std::mt19937 random(7);
    std::uniform_real_distribution<float> level(0.0f, 1.0f);
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                original->GetLinePointer(y, z)[x] = level(random);

    cFFTManager::Instance().AddInstance(size, 1, 3);
    cFFTManager::Instance().InitializePlans();
    cDerivedPsfFirstGuess guess;
    cFloatImagePtr psf(new cOvdImage<float>(size, "test"));
    cFloatImagePtr handedIn = psf;
    guess.Apply(psf, original);
    cFFTManager::Instance().ReleaseThreadInstances();
    ASSERT_TRUE(psf);
    EXPECT_NE(psf.Get(), handedIn.Get());
    ASSERT_EQ(psf->GetDimensions(), size);

    // r(s) = Σ a(p + s)·a(p) over the stack, wrapped round its edges.
    std::vector<double> r(size.Voxels(), 0.0);
    const auto index = [&](uint32_t x, uint32_t y, uint32_t z) {
        return (std::size_t{z} * size.y + y) * size.x + x;
    };
    for (uint32_t sz = 0; sz < size.z; ++sz)
        for (uint32_t sy = 0; sy < size.y; ++sy)
            for (uint32_t sx = 0; sx < size.x; ++sx) {
                double sum = 0;
                for (uint32_t z = 0; z < size.z; ++z)
                    for (uint32_t y = 0; y < size.y; ++y)
                        for (uint32_t x = 0; x < size.x; ++x)
                            sum += double{At(original, x, y, z)} * At(original, (x + sx) % size.x,
                                                                      (y + sy) % size.y,
                                                                      (z + sz) % size.z);
                r[index(sx, sy, sz)] = sum;
            }
    const auto [low, high] = std::minmax_element(r.begin(), r.end());
    const double pedestal = *low - (*high - *low) * 0.001;
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                ASSERT_NEAR(At(psf, x, y, z), r[index(x, y, z)] - pedestal, 1e-5 * *high)
                    << x << "," << y << "," << z;
    EXPECT_EQ(r[0], *high);
}
