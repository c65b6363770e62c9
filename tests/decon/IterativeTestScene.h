#pragma once
// A small scene for the iterative restorations: beads seen through a Gaussian PSF on a
// background, with Poisson noise from a fixed seed, as in-memory images; and the Poisson
// log-likelihood that ML-EM climbs.
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "math/cFFTManager.h"
#include "support/TestImages.h"

namespace IterativeTest {

using Ovidane::cFloatImagePtr;
using Ovidane::cImageDimensions;
using OvidaneTest::At;
using OvidaneTest::Pixels;

// Signed distance of index i from 0 in wrap-around order.
inline float Wrapped(uint32_t i, uint32_t n) {
    return i <= n / 2 ? float(i) : float(i) - float(n);
}

// A Gaussian of sum 1 with its centre at pixel (0, 0, 0), widths in pixels.
inline cFloatImagePtr OriginGaussian(const cImageDimensions& size, float sigmaXY, float sigmaZ) {
    const auto value = [&](uint32_t x, uint32_t y, uint32_t z) {
        const float dx = Wrapped(x, size.x) / sigmaXY, dy = Wrapped(y, size.y) / sigmaXY;
        const float dz = size.z == 1 ? 0.0f : Wrapped(z, size.z) / sigmaZ;
        return std::exp(-0.5f * (dx * dx + dy * dy + dz * dz));
    };
    double sum = 0;
    OvidaneTest::ForEachPixel(size,
                              [&](uint32_t x, uint32_t y, uint32_t z) { sum += value(x, y, z); });
    return OvidaneTest::MakeImage(
        size, [&](uint32_t x, uint32_t y, uint32_t z) { return float(value(x, y, z) / sum); });
}

struct Scene {
    cFloatImagePtr truth, data, psf;
};

// Beads at fixed places (a close pair among them) on `background`, blurred by the PSF and
// drawn from Poisson statistics. Needs a transform instance of `size`.
inline Scene MakeScene(const cImageDimensions& size, float brightness, float background,
                       unsigned seed) {
    Scene s;
    s.psf = OriginGaussian(size, 1.5f, 2.0f);
    const uint32_t zc = size.z / 2;
    s.truth = OvidaneTest::Constant(size, 0.0f);
    const uint32_t places[][3] = {{size.x / 2 - 2, size.y / 2, zc},
                                  {size.x / 2 + 2, size.y / 2, zc},
                                  {size.x / 4, size.y / 4, zc},
                                  {3 * size.x / 4, 2 * size.y / 3, size.z > 2 ? zc + 1 : 0}};
    for (const auto& p : places)
        At(s.truth, p[0], p[1], p[2]) = brightness;
    s.data = OvidaneTest::Constant(size, 0.0f);
    Ovidane::cFFTManager::Instance().Convolve(s.truth, s.psf, s.data, 2);
    std::mt19937 random(seed);
    OvidaneTest::ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        const double mean = std::max(0.0f, At(s.data, x, y, z)) + background;
        At(s.data, x, y, z) = float(std::poisson_distribution<int>(mean)(random));
    });
    return s;
}

// Σ g·ln(x ⊗ h) − x ⊗ h over the pixels inside the guard bands (x1, x2, y1, y2, z1, z2), in
// double. Needs a transform instance of the images' size.
inline double PoissonLogLikelihood(const cFloatImagePtr& data, const cFloatImagePtr& object,
                                   const cFloatImagePtr& psf, const uint32_t guard[6]) {
    const cImageDimensions size = data->GetDimensions();
    cFloatImagePtr blurred = OvidaneTest::Constant(size, 0.0f);
    Ovidane::cFFTManager::Instance().Convolve(object, psf, blurred, 2);
    double sum = 0;
    for (uint32_t z = guard[4]; z + guard[5] < size.z; ++z)
        for (uint32_t y = guard[2]; y + guard[3] < size.y; ++y)
            for (uint32_t x = guard[0]; x + guard[1] < size.x; ++x) {
                const double f = At(blurred, x, y, z);
                sum += At(data, x, y, z) * std::log(f) - f;
            }
    return sum;
}

} // namespace IterativeTest
