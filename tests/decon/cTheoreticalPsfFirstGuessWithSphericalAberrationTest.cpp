#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "IterativeTestScene.h"
#include "core/DeconKeys.h"
#include "core/cException.h"
#include "decon/cPsfCache.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

using cPsfModel = cTheoreticalPsfFirstGuessWithSphericalAberration;

struct Optics {
    float numericalAperture = 1.4f;
    float refractiveIndex = 1.515f;
    float lambda = 520.0f; // nanometres, as hosts give it
    float sphericalAberration = 0.0f;
};

cFloatImagePtr Compute(const Optics& o, cImageDimensions size, float lateral, float axial) {
    cPsfModel model(lateral, lateral, axial, size, o.numericalAperture, o.refractiveIndex, o.lambda,
                    o.sphericalAberration, 1.0f, DEC_FLAG_MOD_WF_FLUORESCENCE);
    cFloatImagePtr psf, original;
    model.Apply(psf, original);
    return psf;
}

// A PSF of sum 1 whose brightest pixel is the origin.
void ExpectUnitSumPeakingAtTheOrigin(const cFloatImagePtr& psf) {
    const std::vector<float> pixels = Pixels(psf);
    EXPECT_NEAR(Sum(psf), 1.0, 1e-4);
    EXPECT_EQ(*std::max_element(pixels.begin(), pixels.end()), pixels[0]);
}

// Largest difference between planes a and b, relative to the stack's central value.
float PlaneDifference(const cFloatImagePtr& image, uint32_t a, const cFloatImagePtr& other,
                      uint32_t b) {
    float worst = 0;
    for (uint32_t y = 0; y < image->GetSizeY(); ++y)
        for (uint32_t x = 0; x < image->GetSizeX(); ++x)
            worst = std::max(worst, std::fabs(At(image, x, y, a) - At(other, x, y, b)));
    return worst / At(image, 0, 0, 0);
}

// Width at half height of (distance, value) samples, the crossing of half the value at
// distance 0 interpolated linearly.
double HalfMaximumWidth(std::vector<std::pair<double, double>> samples) {
    std::sort(samples.begin(), samples.end());
    const double half = samples.front().second / 2;
    for (std::size_t i = 1; i < samples.size(); ++i)
        if (samples[i].second < half) {
            const auto [r0, v0] = samples[i - 1];
            const auto [r1, v1] = samples[i];
            return 2 * (r0 + (v0 - half) * (r1 - r0) / (v0 - v1));
        }
    return -1;
}

} // namespace

TEST(cTheoreticalPsfFirstGuessWithSphericalAberration,
     WidefieldOilObjectiveMatchesTheTextbookWidths) {
    const Optics oil; // 1.4 NA oil objective at 520 nm
    const float lateral = 0.065f, axial = 0.2f;
    const cImageDimensions size{128, 128, 64};
    cFloatImagePtr psf = Compute(oil, size, lateral, axial);
    ASSERT_TRUE(psf);
    ASSERT_EQ(psf->GetDimensions(), size);

    ExpectUnitSumPeakingAtTheOrigin(psf);

    // Without aberration the stack is symmetric about the focal plane, and each plane about
    // its axis.
    for (uint32_t p = 1; p < size.z; ++p)
        ASSERT_EQ(PlaneDifference(psf, p, psf, size.z - p), 0.0f) << p;
    for (uint32_t x = 1; x < size.x; ++x)
        ASSERT_EQ(At(psf, x, 0, 3), At(psf, size.x - x, 0, 3)) << x;

    // Lateral: the radial profile of the focal plane, from pixels in all directions.
    std::vector<std::pair<double, double>> radial;
    for (uint32_t y = 0; y < size.y; ++y)
        for (uint32_t x = 0; x < size.x; ++x) {
            const double r = std::hypot(IterativeTest::Wrapped(x, size.x) * lateral,
                                        IterativeTest::Wrapped(y, size.y) * lateral);
            if (r < 0.5)
                radial.emplace_back(r, At(psf, x, y, 0));
        }
    const double lambda = 0.52, NA = 1.4, n = 1.515;
    const double lateralWidth = HalfMaximumWidth(radial);
    const double lateralTextbook = 0.51 * lambda / NA;
    EXPECT_NEAR(lateralWidth, lateralTextbook, 0.1 * lateralTextbook);

    // Axial: the profile along the optical axis, reported next to the textbook value.
    std::vector<std::pair<double, double>> onAxis;
    for (uint32_t z = 0; z <= size.z / 2; ++z)
        onAxis.emplace_back(z * axial, At(psf, 0, 0, z));
    const double axialWidth = HalfMaximumWidth(onAxis);
    const double axialTextbook = 0.88 * lambda / (n - std::sqrt(n * n - NA * NA));
    std::printf("lateral FWHM %.4f um (textbook %.4f um), axial FWHM %.4f um (textbook %.4f um)\n",
                lateralWidth, lateralTextbook, axialWidth, axialTextbook);
    EXPECT_GT(axialWidth, lateralWidth);
}

// The image math that runs hand out shifts the defocus to balance the aberration, so the
// brightest point stays at the focal plane however large the aberration. The plain back end
// leaves that shift out; its PSF peaks up to planes away from focus.
TEST(cTheoreticalPsfFirstGuessWithSphericalAberration,
     SphericalAberrationBreaksTheAxialSymmetryByItsSignButNotTheFocus) {
    const cImageDimensions size{64, 64, 32};
    for (float aberration : {-1.5f, 0.5f, 1.5f, 3.0f}) {
        SCOPED_TRACE(aberration);
        Optics oil;
        oil.sphericalAberration = aberration;
        cFloatImagePtr psf = Compute(oil, size, 0.065f, 0.2f);
        ExpectUnitSumPeakingAtTheOrigin(psf);
        float asymmetry = 0;
        for (uint32_t p = 1; p < size.z / 2; ++p)
            asymmetry = std::max(asymmetry, PlaneDifference(psf, p, psf, size.z - p));
        EXPECT_GT(asymmetry, 0.05f);
    }

    // The opposite sign mirrors the stack about the focal plane. Up to an NA of 1 no axial
    // weighting depends on where the PSF spreads, so the mirror is exact but for rounding.
    Optics water;
    water.numericalAperture = 1.0f;
    water.refractiveIndex = 1.333f;
    water.sphericalAberration = 1.5f;
    cFloatImagePtr positive = Compute(water, size, 0.1f, 0.25f);
    water.sphericalAberration = -1.5f;
    cFloatImagePtr negative = Compute(water, size, 0.1f, 0.25f);
    EXPECT_LT(PlaneDifference(positive, 0, negative, 0), 1e-5f);
    for (uint32_t p = 1; p < size.z / 2; ++p) { // plane z/2 has no partner on the other side
        EXPECT_LT(PlaneDifference(positive, p, negative, size.z - p), 1e-5f) << p;
        EXPECT_LT(PlaneDifference(positive, size.z - p, negative, p), 1e-5f) << p;
    }
    EXPECT_GT(PlaneDifference(positive, 3, negative, 3), 0.05f);
}

TEST(cTheoreticalPsfFirstGuessWithSphericalAberration, RefusesAnApertureAboveTheIndex) {
    const cImageDimensions size{16, 16, 8};
    cFloatImagePtr psf, original;
    cPsfModel steep(0.1f, 0.1f, 0.2f, size, 1.6f, 1.515f, 520.0f, 0.0f, 1.0f, 6);
    EXPECT_FALSE(steep.IsComplete());
    EXPECT_THROW(steep.Apply(psf, original), cException);
    EXPECT_FALSE(psf);
    // An NA equal to n is allowed; below 3 a wavelength is micrometres already.
    cPsfModel immersion(0.1f, 0.1f, 0.2f, size, 1.515f, 1.515f, 2.9f, 0.0f, 1.0f, 6);
    EXPECT_TRUE(immersion.IsComplete());
    EXPECT_EQ(immersion.GetWavelength(), 2.9f);
    cPsfModel threeNanometres(0.1f, 0.1f, 0.2f, size, 1.2f, 1.515f, 3.0f, 0.0f, 1.0f, 6);
    EXPECT_FLOAT_EQ(threeNanometres.GetWavelength(), 0.003f);
}

TEST(cTheoreticalPsfFirstGuessWithSphericalAberration, CoarseGridsAreIntegratedOverSubPixels) {
    // Nyquist spacing of a 1.4 NA objective at 0.52 µm: 0.0929 µm.
    const cImageDimensions size{64, 64, 16};
    const auto oversampling = [&](float lateral) {
        return cPsfModel(lateral, lateral, 0.2f, size, 1.4f, 1.515f, 520.0f, 0.0f, 1.0f, 6)
            .GetOversampling();
    };
    EXPECT_EQ(oversampling(0.065f), 1u);
    EXPECT_EQ(oversampling(0.1f), 2u);
    EXPECT_EQ(oversampling(0.3f), 4u);
    EXPECT_EQ(oversampling(3.0f), 4u);

    // At 0.3 µm the central lobe is narrower than a pixel. Point samples would put 90% of
    // the focal plane's light into its central pixel; integrated over the pixel's area, the
    // central pixel holds clearly less.
    cFloatImagePtr psf = Compute(Optics{}, size, 0.3f, 0.2f);
    ExpectUnitSumPeakingAtTheOrigin(psf);
    const double central = At(psf, 0, 0, 0) / Sum(psf, 0, 0);
    EXPECT_GT(central, 0.3);
    EXPECT_LT(central, 0.85);
}

TEST(cTheoreticalPsfFirstGuessWithSphericalAberration, SinglePlaneIsTheSumOfPlanesAroundFocus) {
    // A one-plane stack sums the focal plane and twice each of five planes on one side, at
    // steps of λ/(4·n·sin²(α/2)). A ten-plane stack at that step holds the same planes, the
    // ones past the middle mirrored, each of sum 1 (no axial weighting up to an NA of 1).
    Optics water;
    water.numericalAperture = 1.0f;
    water.refractiveIndex = 1.333f;
    const float alpha = std::asin(water.numericalAperture / water.refractiveIndex);
    const float halfAngleSine = std::sin(alpha / 2.0f);
    const float step = 0.52f / (halfAngleSine * halfAngleSine * water.refractiveIndex * 4.0f);

    cFloatImagePtr single = Compute(water, {48, 48, 1}, 0.1f, 0.3f);
    cFloatImagePtr stack = Compute(water, {48, 48, 10}, 0.1f, step);
    ExpectUnitSumPeakingAtTheOrigin(single);
    float worst = 0;
    for (uint32_t y = 0; y < 48; ++y)
        for (uint32_t x = 0; x < 48; ++x) {
            double expected = At(stack, x, y, 5);
            for (uint32_t p = 0; p < 10; ++p)
                expected += At(stack, x, y, p);
            expected *= 10.0 / 11.0;
            worst = std::max(worst, static_cast<float>(std::fabs(expected - At(single, x, y, 0))));
        }
    EXPECT_LT(worst / At(single, 0, 0, 0), 1e-4f);
}

// The process keeps the last PSF for the next request with the same optics: a repeated
// request gets the same bits, a changed aberration its own PSF; the keeping itself keeps a
// PSF the second time it is offered, hands it out only for a key equal in every field, and
// keeps none beyond its allowance.
TEST(cTheoreticalPsfFirstGuessWithSphericalAberration, KeptPsfServesOnlyTheSameRequest) {
    cPsfCache::KeepAtMost(uint64_t{1} << 30);
    const cImageDimensions size{24, 20, 12};
    Optics optics;
    const std::vector<float> made = Pixels(Compute(optics, size, 0.1f, 0.2f));
    EXPECT_EQ(Pixels(Compute(optics, size, 0.1f, 0.2f)), made);
    optics.sphericalAberration = 0.5f;
    EXPECT_NE(Pixels(Compute(optics, size, 0.1f, 0.2f)), made);

    cPsfCache::cKey key{size, 0.1f, 0.1f, 0.2f, 1.0f, 1.4f, 1.515f, 0.52f, 0.0f, 1, typeid(int)};
    const cFloatImagePtr kept = Random(size, 3, 0.0f, 1.0f);
    const cFloatImagePtr fetched = Constant(size, 0.0f);
    cPsfCache::Store(key, kept); // made once: not kept yet
    EXPECT_FALSE(cPsfCache::Fetch(key, fetched));
    cPsfCache::Store(key, kept);
    std::vector<cPsfCache::cKey> others(10, key);
    others[0].size.z = 13;
    others[1].spacingX = 0.11f;
    others[2].spacingY = 0.11f;
    others[3].spacingZ = 0.21f;
    others[4].axialScale = 1.1f;
    others[5].numericalAperture = 1.3f;
    others[6].refractiveIndex = 1.33f;
    others[7].wavelength = 0.6f;
    others[8].sphericalAberration = -0.0f; // another bit pattern of the same number
    others[9].backEnd = typeid(float);
    for (std::size_t i = 0; i < others.size(); ++i)
        EXPECT_FALSE(cPsfCache::Fetch(others[i], fetched)) << "field " << i;
    EXPECT_EQ(Pixels(fetched), std::vector<float>(size.Voxels(), 0.0f));
    ASSERT_TRUE(cPsfCache::Fetch(key, fetched));
    EXPECT_EQ(Pixels(fetched), Pixels(kept));

    cPsfCache::KeepAtMost(size.Voxels() * sizeof(float) - 1); // lets go of the kept one
    EXPECT_FALSE(cPsfCache::Fetch(key, fetched));
    cPsfCache::Store(key, kept); // too large to keep
    EXPECT_FALSE(cPsfCache::Fetch(key, fetched));
    cPsfCache::KeepAtMost(0);
}

// A PSF kept for its optics may be replaced by its prepared form, which is lent without a
// copy, frozen under one number, to the restorations that only read it; lent pixels are
// never written over or freed while borrowed.
TEST(cTheoreticalPsfFirstGuessWithSphericalAberration,
     APreparedPsfIsLentFrozenAndOutlivesItsKeeping) {
    cPsfCache::KeepAtMost(uint64_t{1} << 30);
    const cImageDimensions size{24, 20, 12};
    Optics optics;
    cPsfModel model(0.1f, 0.1f, 0.2f, size, optics.numericalAperture, optics.refractiveIndex,
                    optics.lambda, 0.0f, 1.0f, DEC_FLAG_MOD_WF_FLUORESCENCE);
    cFloatImagePtr made, original, lent;
    model.Apply(made, original);
    const cFloatImagePtr prepared = Random(size, 5, 0.0f, 1.0f);
    model.KeepPrepared(prepared, true); // made once: nothing kept to replace
    EXPECT_FALSE(model.TakePrepared(lent, true));
    model.Apply(made, original);         // made again: now kept
    model.KeepPrepared(prepared, false); // a restoration that writes its PSF keeps nothing
    EXPECT_FALSE(model.TakePrepared(lent, true));
    model.KeepPrepared(prepared, true);
    EXPECT_FALSE(model.TakePrepared(lent, false));
    ASSERT_TRUE(model.TakePrepared(lent, true));
    cFloatImagePtr again;
    ASSERT_TRUE(model.TakePrepared(again, true));
    EXPECT_EQ(Pixels(lent), Pixels(prepared));
    EXPECT_EQ(lent->GetSlicePointer(0), again->GetSlicePointer(0));
    EXPECT_NE(lent->GetFrozenNumber(), 0u);
    EXPECT_EQ(lent->GetFrozenNumber(), again->GetFrozenNumber());
    cPsfModel other(0.1f, 0.1f, 0.2f, size, optics.numericalAperture, optics.refractiveIndex,
                    optics.lambda, 0.5f, 1.0f, DEC_FLAG_MOD_WF_FLUORESCENCE);
    cFloatImagePtr none;
    EXPECT_FALSE(other.TakePrepared(none, true));

    // Keeping the made PSF again leaves the lent pixels as they were, and lends nothing.
    model.Apply(made, original);
    model.Apply(made, original);
    EXPECT_EQ(Pixels(lent), Pixels(prepared));
    EXPECT_FALSE(model.TakePrepared(none, true));
    // So does letting go of a prepared PSF that is lent.
    model.KeepPrepared(made, true);
    cFloatImagePtr last;
    ASSERT_TRUE(model.TakePrepared(last, true));
    EXPECT_NE(last->GetFrozenNumber(), lent->GetFrozenNumber());
    cPsfCache::KeepAtMost(0);
    EXPECT_EQ(Pixels(last), Pixels(made));
    EXPECT_FALSE(model.TakePrepared(none, true));
}
