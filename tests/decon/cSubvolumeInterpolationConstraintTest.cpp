#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "ConstraintTestImages.h"
#include "decon/cSubvolumeInterpolationConstraint.h"

using namespace Ovidane;
using namespace ConstraintTest;

namespace {

struct Cut {
    cImageDimensions offset, padded, low, high;
};

cFloatImagePtr Interpolate(const cFloatImagePtr& image, const Cut& cut) {
    cSubvolumeInterpolationConstraint constraint(cut.offset, image->GetDimensions(), cut.padded,
                                                 cut.low, cut.high);
    return constraint.InterpolateSubVolume(image);
}

std::vector<float> Ramp(uint32_t w) {
    if (w <= 1)
        return {0.5f};
    std::vector<float> ramp(w);
    for (uint32_t i = 0; i < w; ++i)
        ramp[i] = 0.5f - 0.5f * std::cos(3.14159265f * static_cast<float>(i) / (w - 1));
    return ramp;
}

// The padded periodic subvolume computed the plain way, pixel by pixel: fill a widened plane
// with clamped reads, fade its bands, fold them round with period P, cut out the padded
// slice; then blend the guard slices in z from the first and last interior slices.
std::vector<float> Reference(const cFloatImagePtr& image, const Cut& cut) {
    const cImageDimensions &o = cut.offset, &P = cut.padded, &L = cut.low, &H = cut.high;
    const cImageDimensions W{L.x + H.x, L.y + H.y, L.z + H.z};
    const cImageDimensions S = image->GetDimensions();
    const uint32_t C = P.z - W.z, BX = P.x + W.x, BY = P.y + W.y;
    const std::vector<float> rx = Ramp(W.x), ry = Ramp(W.y), rz = Ramp(W.z);
    auto clamp = [](int64_t v, uint32_t n) {
        return static_cast<uint32_t>(std::clamp<int64_t>(v, 0, int64_t{n} - 1));
    };
    std::vector<float> R(std::size_t{P.x} * P.y * P.z);
    auto r = [&](uint32_t x, uint32_t y, uint32_t z) -> float& {
        return R[(std::size_t{z} * P.y + y) * P.x + x];
    };
    for (uint32_t z = L.z; z < L.z + C; ++z) {
        std::vector<float> B(std::size_t{BX} * BY);
        auto b = [&](uint32_t x, uint32_t y) -> float& { return B[std::size_t{y} * BX + x]; };
        for (uint32_t y = 0; y < BY; ++y)
            for (uint32_t x = 0; x < BX; ++x)
                b(x, y) =
                    At(image, clamp(int64_t{o.x} + x - W.x, S.x),
                       clamp(int64_t{o.y} + y - W.y, S.y), clamp(int64_t{o.z} + z - L.z, S.z));
        for (uint32_t j = 0; j < W.y; ++j)
            for (uint32_t x = 0; x < BX; ++x) {
                b(x, j) *= ry[j];
                b(x, P.y + j) *= ry[W.y - 1 - j];
            }
        for (uint32_t i = 0; i < W.x; ++i)
            for (uint32_t y = 0; y < BY; ++y) {
                b(i, y) *= rx[i];
                b(P.x + i, y) *= rx[W.x - 1 - i];
            }
        for (uint32_t x = 0; x < BX; ++x) {
            for (uint32_t j = 0; j < L.y; ++j)
                b(x, H.y + j) += b(x, H.y + P.y + j);
            for (uint32_t j = 0; j < H.y; ++j)
                b(x, P.y + j) += b(x, j);
        }
        for (uint32_t y = 0; y < BY; ++y) {
            for (uint32_t i = 0; i < L.x; ++i)
                b(H.x + i, y) += b(H.x + P.x + i, y);
            for (uint32_t i = 0; i < H.x; ++i)
                b(P.x + i, y) += b(i, y);
        }
        for (uint32_t y = 0; y < P.y; ++y)
            for (uint32_t x = 0; x < P.x; ++x)
                r(x, y, z) = b(H.x + x, H.y + y);
    }
    for (uint32_t y = 0; y < P.y && W.z > 0; ++y)
        for (uint32_t x = 0; x < P.x; ++x) {
            const float A = r(x, y, L.z), E = r(x, y, L.z + C - 1);
            for (uint32_t i = 0; i < L.z; ++i) {
                const float w = rz[H.z + i == 0 ? 0 : H.z + i - 1];
                r(x, y, i) = w * A + (1 - w) * E;
            }
            for (uint32_t i = 0; i < H.z; ++i) {
                const float w = rz[H.z - i + L.z - 1];
                r(x, y, L.z + C + i) = w * E + (1 - w) * A;
            }
        }
    return R;
}

// Cuts from the middle of the image, from its low corner, from an image smaller than the
// padded size, past its far edge, with bands of one pixel and without a high or low band.
const std::vector<Cut> kCuts = {
    {{4, 3, 2}, {8, 7, 6}, {1, 2, 1}, {2, 3, 2}}, {{0, 0, 0}, {8, 7, 6}, {2, 2, 1}, {3, 2, 2}},
    {{1, 1, 1}, {9, 8, 5}, {1, 1, 1}, {2, 2, 1}}, {{20, 2, 1}, {6, 6, 4}, {1, 1, 1}, {2, 1, 1}},
    {{3, 3, 3}, {8, 8, 5}, {0, 1, 0}, {1, 0, 1}}, {{3, 3, 3}, {8, 8, 5}, {1, 0, 1}, {0, 1, 0}},
};

} // namespace

TEST(cSubvolumeInterpolationConstraint, MatchesThePlainComputationForEveryKindOfCut) {
    const cFloatImagePtr image = Random({14, 12, 9}, 21, 0.0f, 100.0f);
    for (std::size_t c = 0; c < kCuts.size(); ++c) {
        const Cut& cut = kCuts[c];
        const cFloatImagePtr result = Interpolate(image, cut);
        ASSERT_EQ(result->GetDimensions(), cut.padded) << c;
        const std::vector<float> expected = Reference(image, cut);
        const cImageDimensions& P = cut.padded;
        for (uint32_t z = 0; z < P.z; ++z)
            for (uint32_t y = 0; y < P.y; ++y)
                for (uint32_t x = 0; x < P.x; ++x)
                    ASSERT_NEAR(At(result, x, y, z), expected[(std::size_t{z} * P.y + y) * P.x + x],
                                1e-4f)
                        << "cut " << c << " at " << x << "," << y << "," << z;
    }
}

TEST(cSubvolumeInterpolationConstraint, WeightsOfTheFoldedPartsSumToOneAndTheWrapMeetsItself) {
    // A constant stays constant whatever the cut: the two weights of every folded line and
    // of every blended guard slice sum to 1.
    const cFloatImagePtr flat = Constant({14, 12, 9}, 7.0f);
    for (const Cut& cut : kCuts) {
        const cFloatImagePtr result = Interpolate(flat, cut);
        for (uint32_t z = 0; z < cut.padded.z; ++z)
            for (uint32_t y = 0; y < cut.padded.y; ++y)
                for (uint32_t x = 0; x < cut.padded.x; ++x)
                    ASSERT_NEAR(At(result, x, y, z), 7.0f, 1e-5f) << x << "," << y << "," << z;
    }

    // Lateral data that repeats with the padded size is reproduced exactly: the fold lands on
    // the exact wrap-around, also with unequal bands, so opposite faces join as the data
    // itself does.
    const Cut cut{{5, 8, 2}, {12, 10, 5}, {2, 3, 1}, {3, 4, 1}};
    const float twoPi = 6.2831853f;
    const cFloatImagePtr periodic = MakeImage({30, 26, 8}, [&](uint32_t x, uint32_t y, uint32_t z) {
        return 10.0f + std::sin(twoPi * x / 12) + 2.0f * std::cos(twoPi * y / 10) + z;
    });
    const cFloatImagePtr result = Interpolate(periodic, cut);
    for (uint32_t z = cut.low.z; z < cut.padded.z - cut.high.z; ++z)
        for (uint32_t y = 0; y < cut.padded.y; ++y)
            for (uint32_t x = 0; x < cut.padded.x; ++x)
                ASSERT_NEAR(At(result, x, y, z),
                            At(periodic, cut.offset.x - cut.low.x + x, cut.offset.y - cut.low.y + y,
                               cut.offset.z - cut.low.z + z),
                            1e-4f)
                    << x << "," << y << "," << z;

    // In z the last guard slice and slice 0 carry the same two weights: no step at the wrap.
    const Cut deep{{2, 2, 2}, {6, 6, 10}, {2, 2, 3}, {2, 2, 4}};
    const cFloatImagePtr stack = Random({12, 12, 12}, 4, 0.0f, 10.0f);
    const cFloatImagePtr padded = Interpolate(stack, deep);
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 6; ++x)
            EXPECT_EQ(At(padded, x, y, 0), At(padded, x, y, 9));
}

TEST(cSubvolumeInterpolationConstraint, WithoutBandsACutIsACopyAndApplyReplacesTheImage) {
    const cFloatImagePtr image = Random({7, 5, 4}, 9, -1.0f, 1.0f);
    const Cut none{{0, 0, 0}, {7, 5, 4}, {0, 0, 0}, {0, 0, 0}};
    const cFloatImagePtr copy = Interpolate(image, none);
    for (uint32_t z = 0; z < 4; ++z)
        for (uint32_t y = 0; y < 5; ++y)
            for (uint32_t x = 0; x < 7; ++x)
                ASSERT_EQ(At(copy, x, y, z), At(image, x, y, z));

    // Without z bands every slice is an interior slice; Apply hands back the new image.
    cSubvolumeInterpolationConstraint constraint({1, 1, 0}, {7, 5, 4}, {5, 3, 4}, {1, 1, 0},
                                                 {1, 1, 0});
    cFloatImagePtr held = image;
    constraint.Setup();
    constraint.Apply(held);
    EXPECT_NE(held.Get(), image.Get());
    EXPECT_EQ(held->GetDimensions(), (cImageDimensions{5, 3, 4}));
    EXPECT_NEAR(At(held, 1, 1, 3), At(image, 1, 1, 3), 1e-6f);

    cFloatImagePtr empty;
    EXPECT_EQ(FailureOf([&] { constraint.Apply(empty); }), "NULL input image in Apply");
    EXPECT_EQ(FailureOf([&] { constraint.InterpolateSubVolume(empty); }),
              "NULL input image in InterpolateSubVolume");
    // No interior slice left between the guard bands.
    cSubvolumeInterpolationConstraint hollow({0, 0, 0}, {7, 5, 4}, {7, 5, 4}, {0, 0, 2}, {0, 0, 2});
    EXPECT_EQ(FailureOf([&] { hollow.InterpolateSubVolume(image); }),
              "Invalid Dimensions in InterpolateSubVolume");
}
