#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include <hwy/targets.h>

#include "math/FastLogExp.h"
#include "math/PassKernels.h"
#include "support/TestImages.h"

using namespace Ovidane;

namespace {

// Line lengths around the vector widths.
constexpr uint32_t kLengths[] = {1, 2, 3, 9, 17, 33, 255, 600};

std::vector<float> RandomLine(uint32_t n, unsigned seed, float low, float high) {
    return OvidaneTest::Pixels(OvidaneTest::Random({n, 1, 1}, seed, low, high));
}

} // namespace

// Every pixel must come out as the scalar formula gives it, bit for bit (a fused multiply-add
// or a reordered sum would show here), on every length and instruction set, and the guarded
// cases must take their branch.
TEST(PassKernels, EveryPixelIsTheScalarFormulaBitForBitOnEveryInstructionSet) {
    int tried = 0;
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        ++tried;
        for (const uint32_t n : kLengths) {
            SCOPED_TRACE(n);
            std::vector<float> x = RandomLine(n, 1, 0.0f, 400.0f),
                               m = RandomLine(n, 2, -0.2f, 3.0f),
                               last = RandomLine(n, 3, -5.0f, 5.0f),
                               q = RandomLine(n, 4, 0.0f, 400.0f);
            q[0] = 0.0f;     // no ratio: the plain update stands
            m[n / 2] = 0.0f; // no logarithm: a zero gradient
            std::vector<float> p(n), h(n), out(n);
            PassKernels::cGradientSums sums;
            PassKernels::ExtrapolationGradientLine(n, x.data(), m.data(), last.data(), p.data(),
                                                   h.data(), sums);
            PassKernels::ExtrapolateLine(n, x.data(), q.data(), out.data(), 0.7f, 1e-3f, 2.0f,
                                         1e-20f);
            // The sums: pixel i into lane i % 8, lanes joined in order.
            double crossLanes[8] = {}, squareLanes[8] = {};
            for (uint32_t i = 0; i < n; ++i) {
                const float update = x[i] * m[i];
                ASSERT_EQ(p[i], update);
                ASSERT_EQ(h[i], update * (m[i] > 0.0f ? FastMath::Log(m[i]) : 0.0f));
                crossLanes[i % 8] += double(h[i]) * last[i];
                squareLanes[i % 8] += double(last[i]) * last[i];
                const float r = std::fmin(std::fmax(x[i] / q[i], 0.5f), 2.0f);
                const float extrapolated =
                    q[i] <= 1e-3f ? x[i] : x[i] * FastMath::Exp(0.7f * FastMath::Log(r));
                ASSERT_EQ(out[i], std::fmax(extrapolated, 1e-20f));
            }
            // The regularised inverse filter, n interleaved complex values.
            const std::vector<float> g = RandomLine(2 * n, 5, -50.0f, 50.0f),
                                     kernel = RandomLine(2 * n, 6, -1.0f, 1.0f);
            std::vector<float> filtered(2 * n);
            PassKernels::WienerSpectrumLine(g.data(), kernel.data(), filtered.data(), n, 0.01f,
                                            0.5f);
            for (uint32_t i = 0; i < n; ++i) {
                const float hr = kernel[2 * i], hi = kernel[2 * i + 1];
                const float t = (hr * hr + hi * hi) + 0.01f;
                const float qr = hr / t, qi = -hi / t;
                ASSERT_EQ(filtered[2 * i], (g[2 * i] * qr - g[2 * i + 1] * qi) * 0.5f);
                ASSERT_EQ(filtered[2 * i + 1], (g[2 * i] * qi + g[2 * i + 1] * qr) * 0.5f);
            }
            // The blending's weighted add, onto earlier values and fresh; a value that is no
            // finite number is reported wherever it lies, in a vector or after the last.
            for (const bool fresh : {false, true}) {
                std::vector<float> added = last;
                ASSERT_TRUE(
                    PassKernels::WeightedAddLine(x.data(), m.data(), added.data(), n, fresh));
                for (uint32_t i = 0; i < n; ++i)
                    ASSERT_EQ(added[i], x[i] * m[i] + (fresh ? 0.0f : last[i]));
                for (const float bad : {INFINITY, -INFINITY, NAN})
                    for (const uint32_t at : {0u, n / 2, n - 1}) {
                        std::vector<float> tile = x;
                        tile[at] = bad;
                        EXPECT_FALSE(PassKernels::WeightedAddLine(tile.data(), m.data(),
                                                                  added.data(), n, fresh));
                    }
            }
            double cross = 0, square = 0;
            for (int lane = 0; lane < 8; ++lane) {
                cross += crossLanes[lane];
                square += squareLanes[lane];
            }
            EXPECT_EQ(sums.cross, cross);
            EXPECT_EQ(sums.lastSquare, square);
        }
    }
    hwy::SetSupportedTargetsForTest(0);
    EXPECT_GE(tried, 2);
}
