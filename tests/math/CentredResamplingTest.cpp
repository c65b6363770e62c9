#include <gtest/gtest.h>

#include <cmath>

#include "math/CentredResampling.h"
#include "support/TestImages.h"

using namespace Ovidane;

namespace {

// One axis of a case: M samples at spacing q onto T pixels at spacing v, and the linear
// profile the source holds along it.
struct cAxis {
    uint32_t M;
    float q;
    uint32_t T;
    float v;
    double a, b; // f(j) = a + b·j
};

// What a destination pixel must hold along one axis, from the geometry alone: the pixel's
// centre at source position s = M/2 + (t - T/2)·v/q, and over its width r = v/q either the
// interpolated profile (finer) or its overlap-weighted samples (coarser) times the width,
// which for a linear profile are both r·f(s). A pixel that lies wholly outside the samples
// holds 0; one that straddles their end is left out (NaN).
double Expected(const cAxis& axis, uint32_t t) {
    if (axis.T == 1) // one plane: all samples summed
        return axis.M * (axis.a + axis.b * (axis.M - 1) / 2.0);
    const double r = double(axis.v) / axis.q;
    const double s = axis.M / 2 + (double(t) - axis.T / 2) * r;
    const double half = r <= 1.0 ? 0.0 : 0.5 * r;
    const double low = r <= 1.0 ? 0.0 : -0.5, high = r <= 1.0 ? axis.M - 1.0 : axis.M - 0.5;
    if (s + half < low || s - half > high || (r > 1.0 && (s + half == low || s - half == high)))
        return 0.0;
    if (s - half < low - 1e-9 || s + half > high + 1e-9)
        return std::nan("");
    return r * (axis.a + axis.b * s);
}

} // namespace

// Linear profiles are reproduced exactly by both interpolation and area weighting, so each
// pixel of the result is known from the geometry: centres meet at size/2, nothing appears
// beyond the samples, and one plane takes the sum of all.
TEST(ResampleAboutCentre, CentresMeetAndNothingAppearsBeyondTheSamples) {
    struct Case {
        const char* what;
        cAxis x, y, z;
    };
    const Case cases[] = {
        {"odd file into even image, same spacing",
         {9, 0.1f, 16, 0.1f, 1, 1},
         {7, 0.1f, 12, 0.1f, 2, 0.5},
         {5, 0.2f, 8, 0.2f, 1, 0.25}},
        {"even file cut to odd image, same spacing",
         {16, 0.1f, 9, 0.1f, 1, 1},
         {12, 0.1f, 7, 0.1f, 2, 0.5},
         {8, 0.2f, 5, 0.2f, 1, 0.25}},
        {"twice finer and three times finer",
         {8, 0.2f, 20, 0.1f, 1, 1},
         {9, 0.3f, 30, 0.1f, 2, 0.5},
         {6, 0.4f, 11, 0.2f, 1, 0.25}},
        {"twice and three times coarser",
         {16, 0.1f, 11, 0.2f, 1, 1},
         {15, 0.1f, 8, 0.3f, 2, 0.5},
         {9, 0.2f, 4, 0.4f, 1, 0.25}},
        {"one plane sums the file's planes",
         {9, 0.1f, 12, 0.1f, 1, 1},
         {8, 0.1f, 8, 0.2f, 2, 0.5},
         {5, 0.2f, 1, 0.2f, 1, 0.25}},
    };
    for (const Case& c : cases) {
        const cFloatImagePtr source =
            OvidaneTest::MakeImage({c.x.M, c.y.M, c.z.M}, [&](uint32_t i, uint32_t j, uint32_t k) {
                return float((c.x.a + c.x.b * i) * (c.y.a + c.y.b * j) * (c.z.a + c.z.b * k));
            });
        cFloatImagePtr result(new cOvdImage<float>({c.x.T, c.y.T, c.z.T}, "test"));
        const float from[3] = {c.x.q, c.y.q, c.z.q}, to[3] = {c.x.v, c.y.v, c.z.v};
        ResampleAboutCentre(source, from, result, to);
        int checked = 0;
        for (uint32_t k = 0; k < c.z.T; ++k)
            for (uint32_t j = 0; j < c.y.T; ++j)
                for (uint32_t i = 0; i < c.x.T; ++i) {
                    const double ex = Expected(c.x, i), ey = Expected(c.y, j),
                                 ez = Expected(c.z, k);
                    const double value = result->GetLinePointer(j, k)[i];
                    if (ex == 0.0 || ey == 0.0 || ez == 0.0) {
                        ASSERT_EQ(value, 0.0) << c.what << " at " << i << "," << j << "," << k;
                    } else if (!std::isnan(ex * ey * ez)) {
                        ASSERT_NEAR(value, ex * ey * ez, 1e-4 * ex * ey * ez)
                            << c.what << " at " << i << "," << j << "," << k;
                        ++checked;
                    }
                }
        EXPECT_GT(checked, 0) << c.what;
    }
}
