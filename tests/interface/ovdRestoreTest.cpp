// The iterative restoration through its exported operation, called as a host calls it:
// refusals of its options, what each method gives on a bead stack, and cancels at any pass.
// (A cut ML-EM run is checked beside the inverse filter's cut runs.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "HostCallFixture.h"
#include "interface/ovdinf01.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

using namespace OvidaneTest;
namespace fs = std::filesystem;

namespace {

// The blur is known: the comparison is of methods, not of PSF models.
struct Restoration : BeadJob {
    explicit Restoration(const BeadStack& s) : BeadJob(s) { MeasuredPsf(16, 16, 9); }
};

BeadStack NoisyBeads(int w, int h, int d) {
    return MakeBeadStack(w, h, d, GridOfBeads(w, h, d, 12, 4, 3000.0f), kSigmaXY, kSigmaZ, 50.0f,
                         17);
}

// Correlation of a restored stack with the beads themselves, points at their pixels.
double CorrelationWithBeads(const std::vector<float>& v, const BeadStack& geometry) {
    std::vector<float> truth(v.size(), 0.0f);
    for (const Bead& b : GridOfBeads(geometry.w, geometry.h, geometry.d, 12, 4, 1.0f))
        truth[geometry.Index(int(b.x), int(b.y), int(b.z))] = 1.0f;
    const double n = double(v.size());
    double sv = 0, st = 0, svv = 0, stt = 0, svt = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
        sv += v[i], st += truth[i];
        svv += double(v[i]) * v[i], stt += truth[i] * truth[i], svt += double(v[i]) * truth[i];
    }
    return (svt - sv * st / n) / std::sqrt((svv - sv * sv / n) * (stt - st * st / n));
}

struct PassCanceller {
    int cancelAtPass;
    int lastPass = -1;
    static uint16_t Call(ovdStructInvFilterStatus* status, void* user) {
        auto* self = static_cast<PassCanceller*>(user);
        self->lastPass = status->sIteration;
        return status->sIteration >= self->cancelAtPass ? 0 : OVD_STATUS_CONTINUE;
    }
};

} // namespace

TEST(IterativeRestore, RefusesOptionsAndValuesNoRunCouldUse) {
    struct Case {
        const char* what;
        void (*spoil)(Restoration&);
        uint16_t code;
        const char* says = ""; // part of the reason the host reads back
    };
    const Case cases[] = {
        {"negative passes", [](Restoration& r) { r.options.nIterations = -3; }, 2},
        {"absurd passes", [](Restoration& r) { r.options.nIterations = OVD_MAX_ITERATIONS + 1; },
         2},
        {"unknown method", [](Restoration& r) { r.options.nMethod = 5; }, 2},
        {"plane method on a stack", [](Restoration& r) { r.options.nMethod = OVD_METHOD_MLEM_2D; },
         2},
        {"blind on a stack", [](Restoration& r) { r.options.nMethod = OVD_METHOD_BLIND_2D; }, 2},
        {"unknown acceleration", [](Restoration& r) { r.options.nAcceleration = 2; }, 2},
        {"unknown start", [](Restoration& r) { r.options.nStart = 7; }, 2},
        {"NaN roughness", [](Restoration& r) { r.options.fRoughness = std::nanf(""); }, 2},
        {"negative roughness", [](Restoration& r) { r.options.fRoughness = -1.0f; }, 2},
        {"object updates", [](Restoration& r) { r.options.nObjectUpdates = OVD_MAX_UPDATES + 1; },
         2},
        {"PSF updates", [](Restoration& r) { r.options.nPsfUpdates = 65535; }, 2},
        {"Gold interval 0", [](Restoration& r) { r.options.nGoldInterval = 0; }, 2},
        {"NaN aberration", [](Restoration& r) { r.image.fSphericalAberration = std::nanf(""); }, 2},
        {"infinite aberration", [](Restoration& r) { r.image.fSphericalAberration = HUGE_VALF; },
         2},
        {"NaN PSF spacing", [](Restoration& r) { r.psfIn.fZSpacing = std::nanf(""); }, 2},
        // Nanometres taken for micrometres: a grid of 16000 x 16000 x 3600 once resampled.
        {"PSF spacing in nanometres",
         [](Restoration& r) {
             r.psfIn.fXSpacing = r.psfIn.fYSpacing = 100;
             r.psfIn.fZSpacing = 250;
         },
         1, "memory budget"},
        {"guard band 101", [](Restoration& r) { r.exp.sZGuardBand = 101; }, 13},
        {"overlap 301", [](Restoration& r) { r.exp.sOverlap = 301; }, 14},
    };
    const BeadStack beads = NoisyBeads(24, 24, 8);
    for (const Case& c : cases) {
        Restoration r(beads);
        c.spoil(r);
        EXPECT_EQ(r.RestoreIteratively(), c.code) << c.what;
        const std::string reason = ovdGetLastErrorMessage();
        EXPECT_TRUE(!reason.empty() && reason.find(c.says) != std::string::npos)
            << c.what << ": " << reason;
        EXPECT_FALSE(fs::exists(r.output)) << c.what;
        EXPECT_EQ(r.temp.Count(), 0u) << c.what;
    }
}

// Every method and start, on noisy beads blurred by the PSF they are given, gives a finite,
// non-negative stack closer to the beads than the data, the same bits on any thread count;
// the inverse filter through this operation is that of the five operations on the theoretical
// PSF (a measured one each brings to the grid its own way). How far ML-EM beats the filter is
// the Python tests' and the quality benchmark's matter.
TEST(IterativeRestore, EveryMethodAndStartImprovesOnTheDataAndTheFilterIsUnchanged) {
    const BeadStack beads = NoisyBeads(36, 36, 12);
    Restoration filter(beads);
    filter.options.nMethod = OVD_METHOD_INVERSE_FILTER;
    filter.psfIn.pszFile = nullptr;
    ASSERT_EQ(filter.RestoreIteratively(), OVD_RESULT_SUCCESS);
    Restoration classic(beads);
    classic.psfIn.pszFile = nullptr;
    ASSERT_EQ(classic.Restore(), OVD_RESULT_SUCCESS);
    EXPECT_TRUE(filter.Result() == classic.Result());
    const double raw = CorrelationWithBeads(beads.v, beads);
    const double filtered = CorrelationWithBeads(filter.Result(), beads);

    struct Variant {
        const char* what;
        uint32_t method, acceleration, start;
    };
    const Variant variants[] = {
        {"ML-EM defaults", OVD_METHOD_MLEM, OVD_ACCELERATION_EXTRAPOLATION, OVD_START_DATA},
        {"ML-EM line search", OVD_METHOD_MLEM, OVD_ACCELERATION_LINE_SEARCH, OVD_START_DATA},
        {"ML-EM from the filter", OVD_METHOD_MLEM, OVD_ACCELERATION_EXTRAPOLATION,
         OVD_START_INVERSE_FILTER},
        {"ML-EM from flat", OVD_METHOD_MLEM, OVD_ACCELERATION_EXTRAPOLATION, OVD_START_FLAT},
        {"Gold", OVD_METHOD_GOLD, OVD_ACCELERATION_EXTRAPOLATION, OVD_START_DATA},
    };
    for (const Variant& v : variants) {
        Restoration r(beads);
        r.options.nMethod = v.method;
        r.options.nAcceleration = v.acceleration;
        r.options.nStart = v.start;
        ASSERT_EQ(r.RestoreIteratively(), OVD_RESULT_SUCCESS) << v.what;
        const std::vector<float> result = r.Result();
        ASSERT_EQ(result.size(), beads.v.size()) << v.what;
        EXPECT_TRUE(std::all_of(result.begin(), result.end(), [](float p) {
            return std::isfinite(p) && p >= 0.0f;
        })) << v.what;
        const double quality = CorrelationWithBeads(result, beads);
        std::printf("%-24s correlation %.3f (raw %.3f, inverse filter %.3f)\n", v.what, quality,
                    raw, filtered);
        EXPECT_GT(quality, raw) << v.what;
        EXPECT_EQ(r.temp.Count(), 0u) << v.what;
        // The same bits whatever the threads: sums in fixed blocks, scratch per thread.
        for (int threads : {1, 7}) {
            Restoration again(beads);
            again.options = r.options;
            ovdSetWorkerThreads(threads);
            const uint16_t code = again.RestoreIteratively();
            ovdSetWorkerThreads(0);
            ASSERT_EQ(code, OVD_RESULT_SUCCESS) << v.what << ", " << threads << " threads";
            EXPECT_TRUE(again.Result() == result) << v.what << ", " << threads << " threads";
        }
    }
}

// Spread of a centred PSF in x: the second moment about its centre, in pixels squared.
double SpreadInX(const std::vector<float>& psf, int w) {
    double total = 0, moment = 0;
    for (std::size_t i = 0; i < psf.size(); ++i) {
        const double dx = double(int(i % std::size_t(w)) - w / 2);
        total += psf[i];
        moment += psf[i] * dx * dx;
    }
    return moment / total;
}

// The plane methods restore a plane closer to its beads than the data and hand the host the
// PSF they ended with, in sum 1: the known PSF as given, the blind estimate narrower than
// that guess, 1.5 times too wide, it started from. A plane the budget would cut is refused to
// the blind method, with nothing left behind.
TEST(IterativeRestore, PlaneMethodsRestoreAPlaneAndHandBackTheirPsf) {
    const BeadStack plane = NoisyBeads(64, 64, 1);
    const double raw = CorrelationWithBeads(plane.v, plane);
    double knownSpread = 0;
    for (uint32_t method : {OVD_METHOD_MLEM_2D, OVD_METHOD_BLIND_2D}) {
        Restoration r(plane);
        WriteRawAs<float>(r.psfFile, MakeGaussianPsf(16, 16, 1, 1.5f * kSigmaXY, kSigmaZ).v);
        r.psfIn.sDepth = 1;
        r.options.nMethod = method;
        const std::string saved = r.dir.File("psf-out.raw");
        ovdStructInvFilterPsf psfOut{};
        psfOut.pszFile = saved.c_str();
        ASSERT_EQ(
            ovd3dRestore(&r.image, &r.psfIn, &psfOut, &r.std, &r.exp, &r.options, nullptr, nullptr),
            OVD_RESULT_SUCCESS)
            << method;
        EXPECT_GT(CorrelationWithBeads(r.Result(), plane), raw) << method;
        const std::vector<float> psf = ReadRaw(saved);
        ASSERT_EQ(psf.size(), std::size_t(psfOut.sWidth) * psfOut.sHeight) << method;
        EXPECT_EQ(psfOut.sDepth, 1) << method;
        EXPECT_NEAR(std::accumulate(psf.begin(), psf.end(), 0.0), 1.0, 1e-3) << method;
        const double spread = SpreadInX(psf, psfOut.sWidth);
        if (method == OVD_METHOD_MLEM_2D)
            knownSpread = spread;
        else
            EXPECT_LT(spread, 0.9 * knownSpread);
        EXPECT_EQ(r.temp.Count(), 0u) << method;
    }

    Restoration cut(NoisyBeads(256, 256, 1));
    cut.options.nMethod = OVD_METHOD_BLIND_2D;
    ovdSetMemoryBudget(1500000);
    EXPECT_EQ(cut.RestoreIteratively(), OVD_RESULT_INVALID_ARGUMENT);
    ovdSetMemoryBudget(0);
    EXPECT_NE(std::string(ovdGetLastErrorMessage()).find("one piece"), std::string::npos)
        << ovdGetLastErrorMessage();
    EXPECT_FALSE(fs::exists(cut.output));
    EXPECT_EQ(cut.temp.Count(), 0u);
}

// A cancel at the first, a middle or the last pass ends the run with 1 at that pass,
// leaves the temporary directory empty, writes no output and leaves the input as it was.
TEST(IterativeRestore, CancelAtAnyPassLeavesNothing) {
    const BeadStack beads = NoisyBeads(32, 32, 8);
    for (int pass : {0, 3, 9}) {
        Restoration r(beads);
        r.options.nIterations = 10;
        const std::vector<char> before = ReadBytes(r.input);
        PassCanceller canceller{pass};
        EXPECT_EQ(r.RestoreIteratively(&PassCanceller::Call, &canceller), OVD_RESULT_RUN_FAILED)
            << pass;
        EXPECT_EQ(canceller.lastPass, pass);
        EXPECT_EQ(r.temp.Count(), 0u) << pass;
        EXPECT_FALSE(fs::exists(r.output)) << pass;
        EXPECT_TRUE(ReadBytes(r.input) == before) << pass;
    }
}
