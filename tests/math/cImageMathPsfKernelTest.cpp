#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerThreads.h"
#include "math/PsfPhase.h"
#include "math/cImageMathGeneric.h"

using namespace Ovidane;

namespace {

constexpr int kWideField = 6;
constexpr int kConfocal = 3;

// The arguments of the PSF kernel for a stack of `size` at spacing (sx, sy, sz), worked
// out as the theoretical PSF's generator does: oversampling, the radial map of a plane
// quadrant, the Bessel table, the axial phase factor.
struct PsfCase {
    cImageDimensions size;
    float sx, sy, sz;
    float NA, n, lambda, SA;
    int modality = kWideField;

    cFloatImagePtr target, plane, table;
    cCountedArray<int32_t> indexMap;
    cCountedArray<float> fractionMap, realSum, imaginarySum, intensity, phaseCosine, phaseSine;
    float A = 0, dz = 0, dRho = 0;
    unsigned S = 1;

    PsfCase(cImageDimensions size_, float sx_, float sy_, float sz_, float NA_, float n_,
            float lambda_, float SA_, int modality_ = kWideField)
        : size(size_), sx(sx_), sy(sy_), sz(sz_), NA(NA_), n(n_), lambda(lambda_), SA(SA_),
          modality(modality_) {
        dz = sz;
        const float alpha = std::asin(NA / n);
        const float nyquist = 1.0f / (2.0f * (2.0f * NA / lambda));
        S = std::clamp(static_cast<unsigned>(std::max(sx, sy) / nyquist) + 1, 1u, 4u);
        const uint32_t W = size.x * S, H = size.y * S;
        float delta, L;
        uint32_t N;
        if (sy * size.y < sx * size.x) {
            delta = sx, N = size.x, L = sx * size.x;
        } else {
            delta = sy, N = size.y, L = sy * size.y;
        }
        const uint32_t R = (N * S * 3) >> 1;
        const uint32_t P = 2 * static_cast<uint32_t>((NA / lambda) / (1.0f / L) + 0.5f) + 4;
        dRho = (1.0f / L) * 0.5f;

        cImageMathGeneric math;
        table = cFloatImagePtr(new cFloatImage({R, 1, P}, "test"));
        math.GenerateBesselArray(table, 6.2831854820251465 / (2.0 * N * S));

        const std::size_t quadrant = std::size_t{H / 2 + 1} * (W / 2 + 1);
        indexMap = MakeCountedArray<int32_t>(quadrant);
        fractionMap = MakeCountedArray<float>(quadrant);
        for (uint32_t y = 0; y <= H / 2; ++y)
            for (uint32_t x = 0; x <= W / 2; ++x) {
                const float a = y * delta / sx, b = x * delta / sy;
                const float r = std::sqrt(a * a + b * b);
                int32_t index = static_cast<int32_t>(r);
                const float fraction = r - index;
                if (index >= static_cast<int32_t>(R) - 1)
                    index = R - 2;
                (*indexMap)[y * (W / 2 + 1) + x] = index;
                (*fractionMap)[y * (W / 2 + 1) + x] = fraction;
            }
        if (alpha < 0.4363323450088501f)
            A = (n * 3.958406925201416f / lambda) * (NA * NA / (n * n));
        else
            A = (PsfPhase::kTwoPi * n / lambda) *
                (1.5842f * alpha * alpha * alpha - 2.1692f * alpha * alpha + 1.66f * alpha -
                 0.3262f);

        target = cFloatImagePtr(new cFloatImage(size, "test"));
        plane = cFloatImagePtr(new cFloatImage({W, H, 1}, "test"));
        realSum = MakeCountedArray<float>(R);
        imaginarySum = MakeCountedArray<float>(R);
        intensity = MakeCountedArray<float>(R);
        phaseCosine = MakeCountedArray<float>(P);
        phaseSine = MakeCountedArray<float>(P);
    }

    void Run() {
        cImageMathGeneric math;
        math.GeneratePsfWithSphericalAberrationUsingBessel(
            target, plane, table, indexMap, fractionMap, realSum, imaginarySum, intensity,
            phaseCosine, phaseSine, size, NA, n, lambda, SA, A, dz, dRho, S, modality);
    }

    float At(uint32_t x, uint32_t y, uint32_t z) const { return target->GetLinePointer(y, z)[x]; }

    std::vector<float> Plane(uint32_t z) const {
        std::vector<float> pixels;
        for (uint32_t y = 0; y < size.y; ++y)
            pixels.insert(pixels.end(), target->GetLinePointer(y, z),
                          target->GetLinePointer(y, z) + size.x);
        return pixels;
    }

    double PlaneSum(uint32_t z) const {
        double sum = 0.0;
        for (float v : Plane(z))
            sum += v;
        return sum;
    }

    // The spacing of the ten planes that make up a single-plane PSF.
    float AxialResolution() const {
        const float s = std::sin(std::asin(NA / n) / 2.0f);
        return lambda / (s * s * n * 4.0f);
    }
};

double MaxDifference(const std::vector<float>& a, const std::vector<float>& b) {
    double difference = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference = std::max(difference, std::fabs(double(a[i]) - b[i]));
    return difference;
}

struct ThreadCountReset {
    ~ThreadCountReset() { cWorkerThreads::SetCount(0); }
};

} // namespace

TEST(cImageMathPsfKernel, PlanesMirrorInZOnlyWithoutAberration) {
    // Without aberration, defocus ±z gives conjugate pupils and the same intensity.
    PsfCase plain({32, 32, 8}, 0.1f, 0.1f, 0.2f, 0.9f, 1.33f, 0.52f, 0.0f);
    plain.Run();
    for (uint32_t p = 1; p < 8; ++p)
        EXPECT_EQ(plain.Plane(p), plain.Plane(8 - p)) << p;
    // The kernel computes every plane when SA isn't 0; with a vanishing SA the planes at
    // ±z agree to rounding, so both halves are placed at the right defocus.
    PsfCase tiny({32, 32, 8}, 0.1f, 0.1f, 0.2f, 0.9f, 1.33f, 0.52f, 1e-7f);
    tiny.Run();
    for (uint32_t p = 1; p < 8; ++p)
        EXPECT_LT(MaxDifference(tiny.Plane(p), tiny.Plane(8 - p)), 1e-5 * tiny.At(0, 0, 0)) << p;
    EXPECT_LT(MaxDifference(tiny.Plane(2), plain.Plane(2)), 1e-5 * plain.At(0, 0, 0));
    // A real aberration moves light asymmetrically about the focus.
    PsfCase aberrated({32, 32, 8}, 0.1f, 0.1f, 0.2f, 0.9f, 1.33f, 0.52f, 0.5f);
    aberrated.Run();
    for (uint32_t p = 1; p < 4; ++p)
        EXPECT_GT(MaxDifference(aberrated.Plane(p), aberrated.Plane(8 - p)),
                  0.05 * aberrated.At(0, 0, 0))
            << p;
}

TEST(cImageMathPsfKernel, PlaneSumsFollowTheAxialWeighting) {
    // Up to an NA of 1 every plane keeps sum 1.
    PsfCase dry({24, 24, 8}, 0.1f, 0.1f, 0.3f, 0.95f, 1.0f, 0.5f, 0.3f);
    dry.Run();
    for (uint32_t p = 0; p < 8; ++p)
        EXPECT_NEAR(dry.PlaneSum(p), 1.0, 1e-5) << p;

    // Above it the sums fall linearly with defocus, towards (NA − 1)/0.4 less light at 20
    // axial resolutions.
    PsfCase oil({24, 24, 8}, 0.1f, 0.1f, 0.3f, 1.2f, 1.515f, 0.52f, 0.3f);
    oil.Run();
    const double alpha = std::asin(1.2 / 1.515);
    const double depth = 0.52 / (1.515 * 4 * std::pow(std::sin(alpha / 2), 2));
    const double end = 1.0 - 0.2 / 0.4;
    for (uint32_t p = 0; p < 8; ++p) {
        const double d = p <= 4 ? p : 8 - p;
        EXPECT_NEAR(oil.PlaneSum(p), 1.0 + d * 0.3 * (end - 1.0) / (20 * depth), 1e-5) << p;
    }

    // A confocal PSF is the square of the normalised wide-field one, without weighting.
    PsfCase confocal({24, 24, 8}, 0.1f, 0.1f, 0.3f, 1.2f, 1.515f, 0.52f, 0.3f, kConfocal);
    confocal.Run();
    for (uint32_t p = 0; p < 8; ++p) {
        const std::vector<float> wide = oil.Plane(p), squared = confocal.Plane(p);
        const double sum = oil.PlaneSum(p);
        const double peak = *std::max_element(squared.begin(), squared.end());
        for (std::size_t i = 0; i < wide.size(); i += 7)
            EXPECT_NEAR(squared[i], std::pow(wide[i] / sum, 2), 1e-5 * peak) << p << " " << i;
    }
}

TEST(cImageMathPsfKernel, OversampledPlaneIsMirroredAndBinnedIntoTheTarget) {
    ThreadCountReset reset;
    cWorkerThreads::SetCount(1);
    // A coarse grid: two samples per pixel and axis.
    PsfCase coarse({20, 16, 4}, 0.2f, 0.2f, 0.25f, 0.8f, 1.33f, 0.5f, 0.4f);
    ASSERT_EQ(coarse.S, 2u);
    coarse.Run();
    // The caller's plane holds the oversampled intensity of the last plane computed.
    const uint32_t W = 40, H = 32;
    const float* fine = coarse.plane->GetSlicePointer(0);
    for (uint32_t y = 1; y < H; ++y)
        for (uint32_t x = 1; x < W; ++x) {
            ASSERT_EQ(fine[y * W + x], fine[y * W + (W - x)]);
            ASSERT_EQ(fine[y * W + x], fine[(H - y) * W + x]);
        }
    std::vector<double> binned(20 * 16, 0.0);
    double total = 0.0;
    for (uint32_t y = 0; y < H; ++y)
        for (uint32_t x = 0; x < W; ++x) {
            binned[(y / 2) * 20 + x / 2] += fine[y * W + x];
            total += fine[y * W + x];
        }
    const std::vector<float> last = coarse.Plane(3);
    for (std::size_t i = 0; i < binned.size(); ++i)
        EXPECT_NEAR(last[i], binned[i] / total, 1e-6 * last[0]) << i;
}

TEST(cImageMathPsfKernel, SinglePlaneIsTheWeightedSumOfTenPlanes) {
    for (float SA : {0.0f, 0.4f}) {
        PsfCase flat({24, 24, 1}, 0.1f, 0.1f, 0.3f, 0.9f, 1.33f, 0.52f, SA);
        flat.Run();
        PsfCase stack({24, 24, 10}, 0.1f, 0.1f, 0.3f, 0.9f, 1.33f, 0.52f, SA);
        stack.dz = flat.AxialResolution();
        stack.Run();
        // Plane 0 counts once, the others twice; without aberration only the focus and the
        // five planes on one side are taken.
        const uint32_t last = SA == 0.0f ? 5 : 9;
        std::vector<double> expected(24 * 24, 0.0);
        for (uint32_t p = 0; p <= last; ++p) {
            const std::vector<float> plane = stack.Plane(p);
            for (std::size_t i = 0; i < plane.size(); ++i)
                expected[i] += (p == 0 ? 1.0 : 2.0) * plane[i];
        }
        const std::vector<float> result = flat.Plane(0);
        for (std::size_t i = 0; i < result.size(); ++i)
            ASSERT_NEAR(result[i], expected[i], 1e-5 * expected[0]) << SA << " " << i;
        EXPECT_NEAR(flat.PlaneSum(0), 1.0 + 2.0 * last, 1e-4);
    }
}

TEST(cImageMathPsfKernel, InFocusPlaneHasTheAiryFirstDarkRing) {
    // Wide-field, in focus: the first minimum of the Airy pattern lies at 0.61·λ/NA.
    PsfCase focus({128, 128, 2}, 0.02f, 0.02f, 0.1f, 1.0f, 1.33f, 0.5f, 0.0f);
    ASSERT_EQ(focus.S, 1u);
    focus.Run();
    const std::vector<float> plane = focus.Plane(0);
    EXPECT_EQ(*std::max_element(plane.begin(), plane.end()), plane[0]);
    uint32_t x = 1;
    while (x + 1 < 64 && !(plane[x] < plane[x - 1] && plane[x] <= plane[x + 1]))
        ++x;
    EXPECT_NEAR(x * 0.02, 0.61 * 0.5 / 1.0, 0.02);
    // And the pattern is round: the same distance along y and along x.
    EXPECT_NEAR(plane[9 * 128], plane[9], 1e-6 * plane[0]);
}

TEST(cImageMathPsfKernel, ResultDoesNotDependOnTheThreadCount) {
    ThreadCountReset reset;
    for (uint32_t depth : {1u, 6u}) {
        std::vector<std::vector<float>> results;
        for (int threads : {1, 2, 3}) {
            cWorkerThreads::SetCount(threads);
            PsfCase run({24, 20, depth}, 0.12f, 0.12f, 0.2f, 1.3f, 1.515f, 0.52f, 0.6f);
            run.Run();
            std::vector<float> all;
            for (uint32_t p = 0; p < depth; ++p) {
                const std::vector<float> plane = run.Plane(p);
                all.insert(all.end(), plane.begin(), plane.end());
            }
            results.push_back(all);
        }
        for (std::size_t k = 1; k < results.size(); ++k)
            EXPECT_EQ(std::memcmp(results[0].data(), results[k].data(),
                                  results[0].size() * sizeof(float)),
                      0)
                << depth << " " << k;
    }
}

TEST(cImageMathPsfKernel, RefusesMissingOrMismatchedBuffers) {
    const auto message = [](PsfCase& c) {
        try {
            c.Run();
        } catch (const cException& failure) {
            EXPECT_EQ(failure.GetCode(), 2);
            return failure.GetMessage();
        }
        return std::string("no failure");
    };
    PsfCase missing({16, 16, 4}, 0.1f, 0.1f, 0.2f, 0.9f, 1.33f, 0.52f, 0.0f);
    missing.phaseSine = cCountedArray<float>();
    EXPECT_EQ(message(missing),
              "NULL input image in GeneratePsfWithSphericalAberrationUsingBessel");
    PsfCase small({16, 16, 4}, 0.1f, 0.1f, 0.2f, 0.9f, 1.33f, 0.52f, 0.0f);
    small.plane = cFloatImagePtr(new cFloatImage({16, 15, 1}, "test"));
    EXPECT_EQ(message(small),
              "Invalid Dimensions in GeneratePsfWithSphericalAberrationUsingBessel");
    PsfCase shortSums({16, 16, 4}, 0.1f, 0.1f, 0.2f, 0.9f, 1.33f, 0.52f, 0.0f);
    shortSums.realSum->pop_back();
    EXPECT_EQ(message(shortSums),
              "Invalid Dimensions in GeneratePsfWithSphericalAberrationUsingBessel");
}
