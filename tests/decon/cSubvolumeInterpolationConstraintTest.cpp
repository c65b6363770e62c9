#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "decon/cIntensityCorrectionConstraint.h"
#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"
#include "decon/cSubvolumeInterpolationConstraint.h"
#include "decon/cTLBInversionConstraint.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

struct Cut {
    cImageDimensions offset, padded, low, high;
};

cFloatImagePtr Interpolate(const cFloatImagePtr& image, const Cut& cut) {
    return cSubvolumeInterpolationConstraint(cut.offset, image->GetDimensions(), cut.padded,
                                             cut.low, cut.high)
        .InterpolateSubVolume(image);
}

// The padded periodic subvolume the plain way, pixel by pixel: a widened plane of clamped
// reads, its bands faded by a raised cosine and folded round with period P, the padded part
// cut out; then the guard slices blended from the first and last interior slices.
float Reference(const cFloatImagePtr& image, const Cut& cut, uint32_t x, uint32_t y, uint32_t z) {
    const cImageDimensions &o = cut.offset, &P = cut.padded, &L = cut.low, &H = cut.high;
    const cImageDimensions W{L.x + H.x, L.y + H.y, L.z + H.z}, S = image->GetDimensions();
    auto ramp = [](uint32_t i, uint32_t w) {
        return w <= 1 ? 0.5f : 0.5f - 0.5f * std::cos(3.14159265f * float(i) / float(w - 1));
    };
    const uint32_t C = P.z - W.z;
    if (z < L.z || z >= L.z + C) {
        const float a = Reference(image, cut, x, y, L.z),
                    e = Reference(image, cut, x, y, L.z + C - 1);
        if (z < L.z) {
            const float w = ramp(H.z + z == 0 ? 0 : H.z + z - 1, W.z);
            return w * a + (1 - w) * e;
        }
        const float w = ramp(H.z - (z - L.z - C) + L.z - 1, W.z);
        return w * e + (1 - w) * a;
    }
    auto clamp = [](int64_t v, uint32_t n) { return uint32_t(std::clamp<int64_t>(v, 0, n - 1)); };
    // Plane pixel (bx, by), faded: rising over the first W, falling over the W from P on.
    auto plane = [&](uint32_t bx, uint32_t by) {
        float v = At(image, clamp(int64_t{o.x} + bx - W.x, S.x),
                     clamp(int64_t{o.y} + by - W.y, S.y), clamp(int64_t{o.z} + z - L.z, S.z));
        if (by < W.y)
            v *= ramp(by, W.y);
        if (by >= P.y && by < P.y + W.y)
            v *= ramp(W.y - 1 - (by - P.y), W.y);
        if (bx < W.x)
            v *= ramp(bx, W.x);
        if (bx >= P.x && bx < P.x + W.x)
            v *= ramp(W.x - 1 - (bx - P.x), W.x);
        return v;
    };
    // Fold in y, then in x: padded pixel (px, py) takes its plane pixel and the one a period
    // away, where that lies in a band.
    auto foldedY = [&](uint32_t bx, uint32_t py) {
        const uint32_t by = H.y + py;
        float v = plane(bx, by);
        if (py < L.y)
            v += plane(bx, by + P.y);
        if (py >= P.y - H.y)
            v += plane(bx, by - P.y);
        return v;
    };
    const uint32_t bx = H.x + x;
    float v = foldedY(bx, y);
    if (x < L.x)
        v += foldedY(bx + P.x, y);
    if (x >= P.x - H.x)
        v += foldedY(bx - P.x, y);
    return v;
}

// Cuts from the middle of the image, from its low corner, from an image smaller than the
// padded size, past its far edge, with bands of one pixel, without a high or a low band,
// and without any band, a plain copy.
const std::vector<Cut> kCuts = {
    {{4, 3, 2}, {8, 7, 6}, {1, 2, 1}, {2, 3, 2}}, {{0, 0, 0}, {8, 7, 6}, {2, 2, 1}, {3, 2, 2}},
    {{1, 1, 1}, {9, 8, 5}, {1, 1, 1}, {2, 2, 1}}, {{20, 2, 1}, {6, 6, 4}, {1, 1, 1}, {2, 1, 1}},
    {{3, 3, 3}, {8, 8, 5}, {0, 1, 0}, {1, 0, 1}}, {{3, 3, 3}, {8, 8, 5}, {1, 0, 1}, {0, 1, 0}},
    {{2, 3, 1}, {7, 5, 4}, {0, 0, 0}, {0, 0, 0}},
};

// Asserts result(x, y, z) against expected(x, y, z) over the padded size.
template <class Expected>
void ExpectEverywhere(const cFloatImagePtr& result, const Cut& cut, float tolerance,
                      Expected&& expected) {
    ASSERT_EQ(result->GetDimensions(), cut.padded);
    for (uint32_t z = 0; z < cut.padded.z; ++z)
        for (uint32_t y = 0; y < cut.padded.y; ++y)
            for (uint32_t x = 0; x < cut.padded.x; ++x)
                ASSERT_NEAR(At(result, x, y, z), expected(x, y, z), tolerance)
                    << x << "," << y << "," << z;
}

// An image's lines, served as a window that lies elsewhere.
class ImageLines : public cWindowLines {
public:
    explicit ImageLines(cFloatImagePtr image) : mImage(std::move(image)) {}
    cImageDimensions Size() const override { return mImage->GetDimensions(); }
    void Line(uint32_t x, uint32_t y, uint32_t z, uint32_t count, float* out) const override {
        std::memcpy(out, mImage->GetLinePointer(y, z) + x, count * sizeof(float));
    }

private:
    cFloatImagePtr mImage;
};

} // namespace

TEST(cSubvolumeInterpolationConstraint, MatchesThePlainComputationForEveryKindOfCut) {
    const cFloatImagePtr image = Random({14, 12, 9}, 21, 0.0f, 100.0f);
    const cFloatImagePtr flat = Constant({14, 12, 9}, 7.0f);
    for (const Cut& cut : kCuts) {
        ExpectEverywhere(
            Interpolate(image, cut), cut, 1e-4f,
            [&](uint32_t x, uint32_t y, uint32_t z) { return Reference(image, cut, x, y, z); });
        // The two weights of every folded line and every blended slice sum to 1.
        ExpectEverywhere(Interpolate(flat, cut), cut, 1e-5f,
                         [](uint32_t, uint32_t, uint32_t) { return 7.0f; });
    }
}

// Pixel corrections made on each line as the padding reads it give the same floats as the
// corrections applied to the whole image first, whether the lines come from the image or
// from a window that lies elsewhere (for which the image given only stands); the image's
// slice 0 is stack slice 2 here.
TEST(cSubvolumeInterpolationConstraint, CorrectionsOnTheWayEqualCorrectingTheImageFirst) {
    const cImageDimensions size{14, 12, 9};
    const cFloatImagePtr image = Random(size, 5, -40.0f, 200.0f);
    // Values at and beside the thresholds, a negative zero and a subnormal.
    const float special[] = {30.0f, 29.999998f, -0.0f, 1e-40f, -1e-40f, 0.0f, 1e-20f};
    for (uint32_t i = 0; i < std::size(special); ++i)
        At(image, i, i % 12, i % 9) = special[i];
    const cFloatImagePtr curve = Random({1, 1, 12}, 6, 0.5f, 2.0f);
    const cPixelCorrectionPtr drift(new cIntensityCorrectionConstraint(curve, 2, 8));
    const cPixelCorrectionPtr inversion(new cTLBInversionConstraint(-3.0f, 180.0f));
    const cPixelCorrectionPtr dark(new cSpecifiedValueBackgroundSubtractionConstraint(30.0f));
    const std::vector<std::vector<cPixelCorrectionPtr>> chains = {
        {drift}, {inversion}, {dark}, {drift, inversion, dark}};
    for (const auto& chain : chains)
        for (const Cut& cut : kCuts) {
            cFloatImagePtr corrected = Copy(image);
            for (const cPixelCorrectionPtr& correction : chain)
                correction->Apply(corrected);
            cSubvolumeInterpolationConstraint onTheWay(cut.offset, size, cut.padded, cut.low,
                                                       cut.high);
            onTheWay.CorrectFirst(chain);
            const std::vector<float> expected = Pixels(Interpolate(corrected, cut));
            cSubvolumeInterpolationConstraint fromLines(cut.offset, size, cut.padded, cut.low,
                                                        cut.high);
            fromLines.CorrectFirst(chain);
            fromLines.ReadFrom(std::make_shared<ImageLines>(image));
            const cFloatImagePtr standIn = Constant({3, 2, 2}, 1.0f);
            for (const std::vector<float>& found :
                 {Pixels(onTheWay.InterpolateSubVolume(image)),
                  Pixels(fromLines.InterpolateSubVolume(standIn))}) {
                ASSERT_EQ(found.size(), expected.size());
                EXPECT_EQ(std::memcmp(found.data(), expected.data(), found.size() * sizeof(float)),
                          0)
                    << "a chain of " << chain.size() << ", cut at " << cut.offset.x << ","
                    << cut.offset.y << "," << cut.offset.z;
            }
        }
}

TEST(cSubvolumeInterpolationConstraint, OppositeFacesJoinAsTheDataItselfDoes) {
    // Lateral data that repeats with the padded size comes out unchanged: the fold lands on
    // the exact wrap-around, also with unequal bands.
    const Cut cut{{5, 8, 1}, {12, 10, 3}, {2, 3, 0}, {3, 4, 0}};
    const cFloatImagePtr periodic = MakeImage({30, 26, 4}, [](uint32_t x, uint32_t y, uint32_t z) {
        return 10.0f + std::sin(6.2831853f * x / 12) + 2.0f * std::cos(6.2831853f * y / 10) + z;
    });
    ExpectEverywhere(
        Interpolate(periodic, cut), cut, 1e-4f,
        [&](uint32_t x, uint32_t y, uint32_t z) { return At(periodic, 3 + x, 5 + y, 1 + z); });

    // In z the last guard slice and slice 0 carry the same two weights: no step at the wrap.
    const Cut deep{{2, 2, 2}, {6, 6, 10}, {2, 2, 3}, {2, 2, 4}};
    const cFloatImagePtr padded = Interpolate(Random({12, 12, 12}, 4, 0.0f, 10.0f), deep);
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 6; ++x)
            EXPECT_EQ(At(padded, x, y, 0), At(padded, x, y, 9));
}

TEST(cSubvolumeInterpolationConstraint, ApplyReplacesTheImageAndRefusesWhatItCannotCut) {
    const cFloatImagePtr image = Random({7, 5, 4}, 9, -1.0f, 1.0f);
    cSubvolumeInterpolationConstraint constraint({1, 1, 0}, {7, 5, 4}, {5, 3, 4}, {1, 1, 0},
                                                 {1, 1, 0});
    cFloatImagePtr held = image, empty;
    constraint.Apply(held);
    EXPECT_EQ(held->GetDimensions(), (cImageDimensions{5, 3, 4}));
    EXPECT_EQ(At(held, 1, 1, 3), At(image, 1, 1, 3)); // an interior pixel, neither faded nor folded
    EXPECT_EQ(FailureOf([&] { constraint.Apply(empty); }), "NULL input image in Apply");
    EXPECT_EQ(FailureOf([&] { constraint.InterpolateSubVolume(empty); }),
              "NULL input image in InterpolateSubVolume");
    // No interior slice left between the guard bands.
    cSubvolumeInterpolationConstraint hollow({0, 0, 0}, {7, 5, 4}, {7, 5, 4}, {0, 0, 2}, {0, 0, 2});
    EXPECT_EQ(FailureOf([&] { hollow.InterpolateSubVolume(image); }),
              "Invalid Dimensions in InterpolateSubVolume");
    // A correction without a factor for the image's last slice fails on the calling thread.
    constraint.CorrectFirst({new cIntensityCorrectionConstraint(Constant({1, 1, 3}, 2.0f), 0, 9)});
    EXPECT_EQ(FailureOf([&] { constraint.InterpolateSubVolume(image); }),
              "Invalid Dimensions in CorrectLine");
}
