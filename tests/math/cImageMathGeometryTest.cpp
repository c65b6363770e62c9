#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "math/cImageMathGeneric.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

TEST(cImageMathGeometry, GaussianSumsToOneAndIsCentredOnTheWrappedOrigin) {
    cImageMathGeneric math;
    cFloatImagePtr image = MakeImage({16, 12, 8});
    math.Generate3DGaussian(image, 0.5f, 1.0f, 2.0f, 3.0f, 4.0f, 6.0f);
    EXPECT_NEAR(Sum(image), 1.0, 1e-5);
    const float peak = At(image, 0, 0, 0);
    for (float v : Pixels(image))
        EXPECT_LE(v, peak);
    // The far half of each axis mirrors the near half.
    EXPECT_EQ(At(image, 1, 0, 0), At(image, 15, 0, 0));
    EXPECT_EQ(At(image, 0, 3, 0), At(image, 0, 9, 0));
    EXPECT_EQ(At(image, 2, 1, 1), At(image, 14, 11, 7));
    // One step along an axis falls by exp(−d²/(2σ²)), σ = fwhm / 2.35457.
    const auto fall = [](double step, double fwhm) {
        const double sigma = fwhm / 2.35457;
        return std::exp(-step * step / (2 * sigma * sigma));
    };
    EXPECT_NEAR(At(image, 1, 0, 0) / peak, fall(0.5, 3.0), 1e-5);
    EXPECT_NEAR(At(image, 0, 1, 0) / peak, fall(1.0, 4.0), 1e-5);
    EXPECT_NEAR(At(image, 0, 0, 7) / peak, fall(2.0, 6.0), 1e-5);
    // Index N/2 is the farthest point, N/2 steps away on the negative side.
    EXPECT_NEAR(At(image, 8, 0, 0) / peak, fall(4.0, 3.0), 1e-5);
    // An odd axis has two farthest points, (N - 1)/2 steps away on either side.
    cFloatImagePtr odd = MakeImage({5, 7, 3});
    math.Generate3DGaussian(odd, 0.5f, 1.0f, 2.0f, 3.0f, 4.0f, 6.0f);
    EXPECT_EQ(At(odd, 2, 0, 0), At(odd, 3, 0, 0));
    EXPECT_EQ(At(odd, 0, 3, 0), At(odd, 0, 4, 0));
    EXPECT_EQ(At(odd, 0, 0, 1), At(odd, 0, 0, 2));
    EXPECT_NEAR(At(odd, 2, 0, 0) / At(odd, 0, 0, 0), fall(1.0, 3.0), 1e-5);
}

// The masks measure from the wrapped origin: on an odd axis the two middle pixels lie
// (N - 1)/2 steps away, so a disc of radius 2.5 covers the whole first row of 5.
TEST(cImageMathGeometry, MasksMeasureOddAxesFromTheWrappedOrigin) {
    cImageMathGeneric math;
    cFloatImagePtr image = MakeImage({5, 5, 1});
    math.GenerateCylinder(image, 1, 1, 1, 0.0f, 2.5f, 1.0f);
    for (uint32_t x = 0; x < 5; ++x)
        EXPECT_EQ(At(image, x, 0, 0), 1.0f) << x;
    EXPECT_EQ(At(image, 2, 2, 0), 0.0f); // r = 2.83
}

// Lines of 8 with ends 10 at s = 2 and 20 at e = 5, and 99 elsewhere: the ramp runs from the
// value at e to the value at s over the end of the line, leaving the pixels between alone.
TEST(cImageMathGeometry, LineBridgesRampAcrossTheWrapAroundGap) {
    cImageMathGeneric math;
    struct Case {
        const char* what;
        bool alongY, cosine;
        float expected[8];
    };
    const Case cases[] = {
        // The pixels between the ends, 42 and 10 here, stay as they are.
        {"linear along x", false, false, {14, 12, 10, 42, 10, 20, 18, 16}},
        // Along y the far part starts one past e and ends one short of the line's end.
        {"linear along y", true, false, {14, 12, 10, 99, 99, 20, 20, 18}},
        // Weights 0, 1/4, 3/4, 1 over the gap 6, 7, 0, 1.
        {"raised cosine along x", false, true, {12.5f, 10, 10, 99, 99, 20, 20, 17.5f}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        cFloatImagePtr image = c.alongY ? Constant({1, 8, 1}, 99.0f) : Constant({8, 1, 1}, 99.0f);
        const auto pixel = [&](uint32_t i) -> float& {
            return c.alongY ? At(image, 0, i, 0) : At(image, i, 0, 0);
        };
        pixel(2) = 10.0f, pixel(5) = 20.0f;
        if (!c.alongY && !c.cosine)
            pixel(3) = 42.0f, pixel(4) = 10.0f;
        cImagePosition start{c.alongY ? 0u : 2u, c.alongY ? 2u : 0u, 0},
            end{c.alongY ? 0u : 5u, c.alongY ? 5u : 0u, 0};
        if (c.cosine)
            math.InterpolateLineCosine(image, start, end);
        else
            math.InterpolateLine(image, start, end);
        for (uint32_t i = 0; i < 8; ++i)
            EXPECT_NEAR(pixel(i), c.expected[i], 1e-5) << i;
    }
}

TEST(cImageMathGeometry, RoiBridgesSpreadABoxOverTheWholeImage) {
    cImageMathGeneric math;
    // Bridging a constant box spreads its value over the whole image: the columns through
    // the box, then every row, then every z line between the box's slices together reach
    // each pixel.
    const auto boxed = [] {
        return MakeImage({8, 7, 4}, [](uint32_t x, uint32_t y, uint32_t z) {
            return x >= 1 && x <= 4 && y >= 2 && y <= 4 && z <= 1 ? 5.0f : 0.0f;
        });
    };
    using Bridge = std::pair<cImageBox, int>;
    for (const auto& [box, mode] : {Bridge{{4, 4, 1, 1, 2, 0}, 1}, Bridge{{1, 2, 0, 4, 4, 1}, 2}}) {
        cFloatImagePtr image = boxed();
        math.InterpolateRoi(image, box, mode);
        for (float v : Pixels(image))
            EXPECT_NEAR(v, 5.0f, 1e-5) << mode;
    }

    // Other modes, and a box over the whole image in the cosine mode, change nothing.
    cFloatImagePtr image = boxed();
    const std::vector<float> before = Pixels(image);
    for (const auto& [box, mode] : {Bridge{{1, 2, 0, 4, 4, 1}, 3}, Bridge{{0, 0, 0, 7, 6, 3}, 2},
                                    Bridge{{0, 0, 0, 7, 6, 3}, 1}}) {
        math.InterpolateRoi(image, box, mode);
        EXPECT_EQ(Pixels(image), before) << mode;
    }

    // A single plane: the box's own pixels keep their values in both modes, and the rim
    // is bridged between the box's edges, not flattened to one value.
    for (int mode : {1, 2}) {
        cFloatImagePtr plane = MakeImage({8, 7, 1}, [](uint32_t x, uint32_t y, uint32_t) {
            return x >= 1 && x <= 4 && y >= 2 && y <= 4 ? float(1 + x + 10 * y) : 0.0f;
        });
        math.InterpolateRoi(plane, {1, 2, 0, 4, 4, 0}, mode);
        for (uint32_t y = 2; y <= 4; ++y)
            for (uint32_t x = 1; x <= 4; ++x)
                EXPECT_EQ(*plane->GetPixelPointer(x, y, 0), float(1 + x + 10 * y)) << mode;
    }
}

TEST(cImageMathGeometry, BilinearResamplingKeepsLinearRampsAndLevels) {
    cImageMathGeneric math;
    const auto resample = [&](const cFloatImagePtr& in, cImageDimensions to) {
        const cImageDimensions from = in->GetDimensions();
        cFloatImagePtr out = MakeImage({to.x, to.y, to.z});
        math.InterpolateBilinear(in, out, MakeImage({to.x, from.y, 1}),
                                 MakeImage({to.x, to.y, from.z}));
        return out;
    };
    cFloatImagePtr in = MakeImage({6, 5, 4}, [](uint32_t x, uint32_t y, uint32_t z) {
        return 1.0f + 0.5f * x + 2.0f * y + z;
    });
    EXPECT_EQ(Pixels(resample(in, {6, 5, 4})), Pixels(in));

    // Stretching samples the ramp at i·f, exactly, up to the last source sample.
    cFloatImagePtr up = resample(in, {12, 10, 8});
    for (uint32_t z = 0; z < 7; ++z)
        for (uint32_t y = 0; y < 9; ++y)
            for (uint32_t x = 0; x < 11; ++x)
                EXPECT_NEAR(At(up, x, y, z), 1.0f + 0.25f * x + 1.0f * y + 0.5f * z, 1e-4)
                    << x << " " << y << " " << z;

    // Shrinking by 2 averages pairs: the ramp at 2i + 0.5.
    cFloatImagePtr down = resample(in, {3, 5, 2});
    for (uint32_t z = 0; z < 2; ++z)
        for (uint32_t y = 0; y < 5; ++y)
            for (uint32_t x = 0; x < 3; ++x)
                EXPECT_NEAR(At(down, x, y, z),
                            1.0f + 0.5f * (2 * x + 0.5f) + 2.0f * y + 2 * z + 0.5f, 1e-4);

    // A non-integer shrink sums over stretches that cut pixels, and keeps the mean level.
    cFloatImagePtr uneven = MakeImage(
        {7, 3, 1}, [](uint32_t x, uint32_t y, uint32_t) { return 1.0f + x + 3.0f * y * (x % 2); });
    const std::vector<float> shrunk = Pixels(resample(uneven, {3, 2, 1}));
    double mean = 0.0;
    for (float v : shrunk)
        mean += v / shrunk.size();
    EXPECT_NEAR(mean, Sum(uneven) / 21.0, 1e-4);
    // Pixel (0, 0): rows 0 and half of row 1, each over columns 0, 1 and a third of 2.
    EXPECT_NEAR(shrunk[0], ((1 + 2 + 3 / 3.0) + 0.5 * (1 + 5 + 3 / 3.0)) / (7 / 3.0 * 1.5), 1e-5);
}

TEST(cImageMathGeometry, BesselTableMatchesTheLibraryFunction) {
    cImageMathGeneric math;
    cFloatImagePtr table = MakeImage({50, 1, 20});
    const double step = 0.0625;
    math.GenerateBesselArray(table, step);
    for (uint32_t j : {0u, 1u, 7u, 19u})
        for (uint32_t i : {0u, 1u, 13u, 49u}) {
            const double expected = j * std::cyl_bessel_j(0.0, i * j * step);
            EXPECT_NEAR(At(table, i, 0, j), expected, 1e-6 * std::max(1.0, double(j)))
                << i << " " << j;
        }
}
