// Whole restorations through the exported operations, called as a host calls them, on
// small synthetic bead stacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
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

struct StatusSeen {
    std::vector<ovdStructInvFilterStatus> reports;
    bool cancelAtFirst = false;
    std::string removeAtSecond; // a file deleted at the first report of subvolume 2
    std::string watched;        // a directory whose files are counted at every report
    std::size_t mostFiles = 0;
};

uint16_t RecordStatus(ovdStructInvFilterStatus* status, void* user) {
    auto* seen = static_cast<StatusSeen*>(user);
    seen->reports.push_back(*status);
    if (!seen->watched.empty())
        seen->mostFiles = std::max<std::size_t>(
            seen->mostFiles, std::distance(fs::directory_iterator(seen->watched), {}));
    if (status->sSubvolume == 2 && !seen->removeAtSecond.empty())
        std::remove(seen->removeAtSecond.c_str());
    return seen->cancelAtFirst ? 0 : OVD_STATUS_CONTINUE;
}

// A host of the argument-list form that says stop once it has heard of the second subvolume.
struct HostSeen {
    std::vector<uint32_t> subvolumes, counts;
    static uint16_t Call(void* user, uint32_t, float, uint32_t count, uint32_t subvolume, float) {
        auto* seen = static_cast<HostSeen*>(user);
        seen->subvolumes.push_back(subvolume);
        seen->counts.push_back(count);
        return subvolume >= 2 ? 0 : OVD_STATUS_CONTINUE;
    }
};

BeadStack SmallBeads(int w = 48, int h = 40, int d = 12) {
    return MakeBeadStack(w, h, d, GridOfBeads(w, h, d, 16, 6, 4000.0f), kSigmaXY, kSigmaZ, 20.0f);
}

// How much a bead stands out of its ring at two pixels' distance, summed over the beads:
// a restoration gathers the light of a blurred bead back towards its centre.
double Sharpness(const std::vector<float>& v, const BeadStack& geometry) {
    double ratio = 0;
    for (const Bead& b : GridOfBeads(geometry.w, geometry.h, geometry.d, 16, 6, 1.0f)) {
        const int x = int(b.x), y = int(b.y), z = int(b.z);
        if (x < 2 || y < 2 || x + 2 >= geometry.w || y + 2 >= geometry.h)
            continue;
        const float ring = (v[geometry.Index(x - 2, y, z)] + v[geometry.Index(x + 2, y, z)] +
                            v[geometry.Index(x, y - 2, z)] + v[geometry.Index(x, y + 2, z)]) /
                           4;
        ratio += v[geometry.Index(x, y, z)] / std::max(1.0f, std::abs(ring));
    }
    return ratio;
}

bool AllFinite(const std::vector<float>& v) {
    return std::all_of(v.begin(), v.end(), [](float p) { return std::isfinite(p); });
}

} // namespace

TEST(RunStages, EightSixteenBitAndFloatInputRestoreAlikeAndLeaveNothingBehind) {
    const BeadStack beads =
        MakeBeadStack(48, 40, 12, GridOfBeads(48, 40, 12, 16, 6, 2500.0f), kSigmaXY, kSigmaZ,
                      10.0f); // every value fits 8 bits
    ASSERT_LE(beads.Maximum(), 255.0f);
    std::vector<std::vector<float>> results;
    for (uint32_t type : {OVD_DATATYPE_UINT8, OVD_DATATYPE_UINT16, OVD_DATATYPE_FLOAT32}) {
        BeadJob job(beads, type);
        const std::vector<char> before = ReadBytes(job.input);
        ASSERT_EQ(job.Restore(), OVD_RESULT_SUCCESS) << "pixel type " << type;
        results.push_back(job.Result());
        EXPECT_EQ(ReadBytes(job.input), before) << "the input file is the host's";
        EXPECT_EQ(job.temp.Count(), 0u) << "temporary files left by pixel type " << type;
    }
    ASSERT_EQ(results[0].size(), std::size_t(48 * 40 * 12));
    EXPECT_TRUE(AllFinite(results[0]));
    // The conversion is by value, so the three runs restore the same numbers.
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(results[1], results[2]);
    EXPECT_GT(Sharpness(results[2], beads), 1.5 * Sharpness(beads.v, beads));
}

TEST(RunStages, MeasuredAndComputedPsfBothSharpenAndTheSavedPsfReportsItsFile) {
    const BeadStack beads = SmallBeads();
    // A measured PSF, smaller than the stack and saved back: the record receives the saved
    // file's geometry and the measured spacings.
    BeadJob measured(beads);
    measured.MeasuredPsf(16, 16, 9);
    measured.SavePsf();
    ASSERT_EQ(measured.Restore(), OVD_RESULT_SUCCESS);
    EXPECT_GT(Sharpness(measured.Result(), beads), 1.5 * Sharpness(beads.v, beads));
    const ovdStructInvFilterPsf& saved = measured.psfOut;
    ASSERT_GE(saved.sWidth, 48); // the PSF of a restoration has the padded stack's size
    ASSERT_GT(saved.sHeight, 0);
    EXPECT_GE(saved.sDepth, 12);
    EXPECT_EQ(fs::file_size(measured.savedPsf),
              std::uintmax_t(saved.sWidth) * saved.sHeight * saved.sDepth * 4);
    EXPECT_FLOAT_EQ(saved.fXSpacing, 0.1f);
    EXPECT_FLOAT_EQ(saved.fZSpacing, 0.25f);
    // The saved PSF is stored with its peak in the middle of the volume, summing to 1.
    const std::vector<float> psf = ReadRaw(measured.savedPsf);
    const auto peak = int(std::max_element(psf.begin(), psf.end()) - psf.begin());
    const int plane = saved.sWidth * saved.sHeight;
    EXPECT_NEAR(peak % saved.sWidth, saved.sWidth / 2, 1);
    EXPECT_NEAR(peak % plane / saved.sWidth, saved.sHeight / 2, 1);
    EXPECT_NEAR(peak / plane, saved.sDepth / 2, 1);
    EXPECT_NEAR(std::accumulate(psf.begin(), psf.end(), 0.0), 1.0, 1e-3);
    EXPECT_EQ(measured.temp.Count(), 0u);

    // The computed PSF through the argument list: the geometry arrives through places 32
    // to 34, and spacings of 0 say that no PSF was given.
    BeadJob computed(beads);
    PsfOutValues out;
    ASSERT_EQ(computed.RestoreThroughArguments(OVD_ARG_PIXEL_UINT16, 0.0f, OVD_NOISE_LOW,
                                               computed.savedPsf.c_str(), out),
              OVD_RESULT_SUCCESS);
    EXPECT_EQ(out.w, saved.sWidth); // same stack, same cut
    EXPECT_EQ(out.h, saved.sHeight);
    EXPECT_EQ(out.d, saved.sDepth);
    EXPECT_EQ(fs::file_size(computed.savedPsf), std::uintmax_t(out.w) * out.h * out.d * 4);
    EXPECT_TRUE(out.sx == 0.0f && out.sy == 0.0f && out.sz == 0.0f)
        << out.sx << ", " << out.sy << ", " << out.sz;
    EXPECT_GT(Sharpness(computed.Result(), beads), 1.5 * Sharpness(beads.v, beads));
    EXPECT_EQ(computed.temp.Count(), 0u);
}

TEST(RunStages, BrightfieldKeepsDarkStructuresDark) {
    // Transmitted light: absorbing beads are dips in a bright field. The run turns the
    // stack around for the filter and back again before it writes the output.
    BeadStack beads = SmallBeads();
    const float top = beads.Maximum() + 200.0f;
    for (float& p : beads.v)
        p = top - p;
    BeadJob job(beads);
    job.image.nModality = OVD_MODALITY_TL_BRIGHTFIELD;
    ASSERT_EQ(job.Restore(), OVD_RESULT_SUCCESS);
    const std::vector<float> result = job.Result();
    ASSERT_EQ(result.size(), beads.v.size());
    EXPECT_TRUE(AllFinite(result));
    std::vector<float> sorted = result;
    std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(sorted.size() / 2),
                     sorted.end());
    const float median = sorted[sorted.size() / 2];
    int darker = 0, total = 0;
    for (const Bead& b : GridOfBeads(48, 40, 12, 16, 6, 1.0f)) {
        ++total;
        darker += result[beads.Index(int(b.x), int(b.y), int(b.z))] < median ? 1 : 0;
    }
    EXPECT_EQ(darker, total);
    EXPECT_EQ(job.temp.Count(), 0u);
}

TEST(RunStages, SingleSliceStackRestoresInTwoDimensions) {
    const BeadStack beads =
        MakeBeadStack(64, 48, 1, GridOfBeads(64, 48, 1, 16, 1, 1500.0f), kSigmaXY, kSigmaZ, 20.0f);
    BeadJob job(beads, OVD_DATATYPE_FLOAT32);
    job.SavePsf();
    ASSERT_EQ(job.Restore(), OVD_RESULT_SUCCESS);
    const std::vector<float> result = job.Result();
    ASSERT_EQ(result.size(), std::size_t(64 * 48));
    EXPECT_TRUE(AllFinite(result));
    EXPECT_GT(Sharpness(result, beads), Sharpness(beads.v, beads));
    EXPECT_EQ(job.psfOut.sDepth, 1);
    EXPECT_EQ(fs::file_size(job.savedPsf),
              std::uintmax_t(job.psfOut.sWidth) * job.psfOut.sHeight * 4);
    EXPECT_EQ(job.temp.Count(), 0u);
}

TEST(RunStages, ValuesNoRestorationCanHoldEndTheRunWithTheirCause) {
    // Whatever the operations accept and no arithmetic can turn into a finite stack ends
    // with 1 and a reason that names it: never with 0 and pixels that are no numbers.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const BeadStack beads = SmallBeads();
    enum Where { Pixel, Aberration, ArgumentListAberration, PsfPixel, SearchPixel, SearchLimits };
    struct Case {
        Where where;
        float value;
        const char* reason;
    };
    const Case cases[] = {
        {Pixel, nan, "not finite numbers"},
        {Pixel, -inf, "not finite numbers"},
        {Pixel, 3e38f, "near the float limit"},
        {Aberration, nan, "spherical aberration"},
        {ArgumentListAberration, inf, "spherical aberration"},
        {PsfPixel, nan, "PSF file"},
        {PsfPixel, inf, "PSF file"},
        {SearchPixel, nan, "not finite numbers"},
        {SearchLimits, nan, "search limits"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << int(c.where) << ", value " << c.value);
        BeadJob job(beads, OVD_DATATYPE_FLOAT32);
        if (c.where == Pixel || c.where == SearchPixel) {
            std::vector<float> v = beads.v;
            v[beads.Index(20, 20, 6)] = c.value;
            WriteRawAs<float>(job.input, v);
        }
        if (c.where == PsfPixel) {
            job.MeasuredPsf(16, 16, 9);
            std::vector<float> psf = MakeGaussianPsf(16, 16, 9, kSigmaXY, kSigmaZ).v;
            psf[5] = c.value;
            WriteRawAs<float>(job.psfFile, psf);
        }
        if (c.where == Aberration)
            job.image.fSphericalAberration = c.value;
        uint16_t code;
        if (c.where == ArgumentListAberration) {
            PsfOutValues out;
            code = job.RestoreThroughArguments(OVD_ARG_PIXEL_FLOAT32, c.value, OVD_NOISE_AUTOMATIC,
                                               nullptr, out);
        } else if (c.where == SearchPixel || c.where == SearchLimits) {
            const float limit = c.where == SearchLimits ? c.value : 2.0f;
            float estimate = -99.0f;
            code = ovd3dInverseFilterDetectSA(job.input.c_str(), job.tempPath.c_str(), 48, 40, 12,
                                              0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0, 0, 0, 10,
                                              6, 10, 1, OVD_ARG_PIXEL_FLOAT32, -limit, limit,
                                              &estimate, 0, 0, 0, nullptr, nullptr);
            EXPECT_EQ(estimate, 0.0f);
        } else {
            code = job.Restore();
        }
        EXPECT_EQ(code, OVD_RESULT_RUN_FAILED);
        const std::string reason = ovdGetLastErrorMessage();
        EXPECT_NE(reason.find(c.reason), std::string::npos) << reason;
        EXPECT_EQ(job.temp.Count(), 0u);
    }
}

TEST(RunStages, AutomaticRegularisationGivesTheSameResultForAnyThreadCount) {
    // A noisy stack of a size whose transforms FFTW would cut differently for 19 threads
    // than for 1: the regularisation estimate transforms a plane of it, and its K reaches
    // every pixel.
    const BeadStack beads = MakeBeadStack(100, 90, 20, GridOfBeads(100, 90, 20, 17, 6, 4000.0f),
                                          kSigmaXY, kSigmaZ, 100.0f, 5);
    std::vector<float> single;
    for (int threads : {1, 2, 7, 19, 32}) {
        BeadJob job(beads);
        job.exp.fNoiseFactor = 0.0f; // automatic
        ovdSetWorkerThreads(threads);
        const uint16_t code = job.Restore();
        ovdSetWorkerThreads(0);
        ASSERT_EQ(code, OVD_RESULT_SUCCESS) << threads << " threads";
        if (single.empty())
            single = job.Result();
        else
            EXPECT_TRUE(job.Result() == single) << threads << " threads";
    }
}

namespace {

// A stack large enough in x and y that a budget of a few megabytes cuts it into 3 by 3
// subvolumes, while the machine's memory restores it in one piece.
BeadStack SeamBeads() {
    return MakeBeadStack(160, 160, 8, GridOfBeads(160, 160, 8, 20, 4, 4000.0f), kSigmaXY, kSigmaZ,
                         100.0f);
}

constexpr int64_t kCuttingBudget = 4600000;

// The largest difference between two restorations of a stack away from its outer x and y
// faces, where a cut and an uncut run see the same neighbourhood, as a fraction of the
// first one's range.
float SeamDeviation(const std::vector<float>& a, const std::vector<float>& b,
                    const BeadStack& geometry, int margin = 10) {
    const auto [lo, hi] = std::minmax_element(a.begin(), a.end());
    float worst = 0;
    for (int z = 0; z < geometry.d; ++z)
        for (int y = margin; y < geometry.h - margin; ++y)
            for (int x = margin; x < geometry.w - margin; ++x)
                worst = std::max(worst,
                                 std::abs(a[geometry.Index(x, y, z)] - b[geometry.Index(x, y, z)]));
    return worst / (*hi - *lo);
}

} // namespace

TEST(RunStages, CutRestorationMatchesTheUncutOneAwayFromTheFaces) {
    // The filter itself acts locally, so cutting must not change what it gives away from the
    // seams' guard bands. What describes the whole stack (background, estimated
    // regularisation, the non-negativity step's pedestal and scale) is estimated once for
    // the whole stack, so the default mode (estimated K, computed PSF, no phase object)
    // must hold as well as a phase object with a fixed K and the PSF of the blur. ML-EM
    // restores each subvolume on its own and must not show the seams either.
    struct Mode {
        const char* what;
        bool phaseObject, measuredPsf;
        float noiseFactor;
        bool mlem = false;
    };
    const Mode modes[] = {
        {"phase object, fixed K, measured PSF", true, true, 2e-5f},
        {"default: estimated K, computed PSF", false, false, 0.0f},
        {"estimated K, measured PSF", false, true, 0.0f},
        {"ML-EM, measured PSF", false, true, 2e-5f, true},
    };
    const BeadStack beads = SeamBeads();
    for (const Mode& mode : modes) {
        SCOPED_TRACE(mode.what);
        auto restore = [&](BeadJob& job, StatusSeen& seen, int64_t budget) {
            job.std.bPhaseObject = mode.phaseObject ? 1 : 0;
            job.exp.fNoiseFactor = mode.noiseFactor;
            if (mode.measuredPsf)
                job.MeasuredPsf(16, 16, 9);
            ovdSetMemoryBudget(budget);
            job.options.nIterations = 10;
            const uint16_t code = mode.mlem ? job.RestoreIteratively(&RecordStatus, &seen)
                                            : job.Restore(&RecordStatus, &seen);
            ovdSetMemoryBudget(0);
            return code;
        };
        BeadJob whole(beads), cut(beads);
        StatusSeen wholeSeen, cutSeen;
        wholeSeen.watched = whole.temp.Path().string();
        cutSeen.watched = cut.temp.Path().string();
        // The subvolumes share the PSF made for the first: its file may go while the second
        // one runs, and the later ones do without it.
        if (mode.measuredPsf)
            cutSeen.removeAtSecond = cut.psfFile;
        ASSERT_EQ(restore(whole, wholeSeen, 0), OVD_RESULT_SUCCESS);
        ASSERT_FALSE(wholeSeen.reports.empty());
        EXPECT_EQ(wholeSeen.reports.back().sSubvolumeCount, 1);
        ASSERT_EQ(restore(cut, cutSeen, kCuttingBudget), OVD_RESULT_SUCCESS);
        // One subvolume keeps its temporary files in memory; a cut writes them to disk.
        EXPECT_EQ(wholeSeen.mostFiles, 0u);
        EXPECT_GT(cutSeen.mostFiles, 0u);

        // Status reports name each subvolume, from 1 to the count, in order.
        ASSERT_FALSE(cutSeen.reports.empty());
        const int count = cutSeen.reports.front().sSubvolumeCount;
        EXPECT_GE(count, 9);
        int last = 1;
        std::vector<bool> named(std::size_t(count) + 1, false);
        for (const ovdStructInvFilterStatus& s : cutSeen.reports) {
            EXPECT_EQ(s.sSubvolumeCount, count);
            EXPECT_GE(s.sSubvolume, last);
            last = s.sSubvolume;
            named[std::size_t(s.sSubvolume)] = true;
        }
        EXPECT_EQ(std::count(named.begin() + 1, named.end(), true), count);

        // Away from the outer faces the seams must not show: less than 1% of the range.
        const std::vector<float> a = whole.Result(), b = cut.Result();
        ASSERT_EQ(a.size(), beads.v.size());
        ASSERT_EQ(b.size(), beads.v.size());
        const float deviation = SeamDeviation(a, b, beads);
        std::printf("%s: seam deviation %.4f%% of the range (%d subvolumes)\n", mode.what,
                    100.0 * deviation, count);
        EXPECT_LT(deviation, 0.01f);
        EXPECT_FALSE(mode.measuredPsf && fs::exists(cut.psfFile)) << "the PSF file stayed";
        EXPECT_EQ(cut.temp.Count(), 0u);
    }
}

// A cut blended as its restorations come writes its output while the stack is still being
// read. An output that names the stack itself must still get the restoration of the stack
// as it was: the one written to a file of its own.
TEST(RunStages, AnOutputThatIsTheStackItselfGetsTheSameRestoration) {
    const BeadStack beads = MakeBeadStack(
        300, 260, 16, GridOfBeads(300, 260, 16, 30, 4, 4000.0f), kSigmaXY, kSigmaZ, 100.0f);
    BeadJob apart(beads), inPlace(beads);
    inPlace.std.pszOutputFile = inPlace.input.c_str();
    ovdSetMemoryBudget(int64_t{32} << 20);
    const uint16_t apartCode = apart.Restore();
    const uint16_t inPlaceCode = inPlace.Restore();
    ovdSetMemoryBudget(0);
    ASSERT_EQ(apartCode, OVD_RESULT_SUCCESS);
    ASSERT_EQ(inPlaceCode, OVD_RESULT_SUCCESS);
    const std::vector<float> expected = apart.Result();
    ASSERT_EQ(expected.size(), beads.v.size());
    EXPECT_TRUE(ReadRaw(inPlace.input) == expected);
}

TEST(RunStages, CancelFromTheCallbackEndsWithOneAndCleansUp) {
    const BeadStack beads = SeamBeads();
    // Cancelled at the very first report.
    BeadJob first(beads);
    first.SavePsf();
    StatusSeen atFirst;
    atFirst.cancelAtFirst = true;
    EXPECT_EQ(first.Restore(&RecordStatus, &atFirst), OVD_RESULT_RUN_FAILED);
    EXPECT_EQ(atFirst.reports.size(), 1u);
    EXPECT_EQ(first.psfOut.sWidth, -7) << "the PSF record is written on success only";
    EXPECT_EQ(first.temp.Count(), 0u);

    // Cancelled in the middle of a cut run, through the argument-list form's callback.
    BeadJob middle(beads);
    HostSeen host;
    PsfOutValues out;
    ovdSetMemoryBudget(kCuttingBudget);
    const uint16_t code =
        middle.RestoreThroughArguments(OVD_ARG_PIXEL_UINT16, 0.0f, OVD_NOISE_LOW,
                                       middle.savedPsf.c_str(), out, &HostSeen::Call, &host);
    ovdSetMemoryBudget(0);
    EXPECT_EQ(code, OVD_RESULT_RUN_FAILED);
    ASSERT_FALSE(host.subvolumes.empty());
    EXPECT_EQ(host.subvolumes.back(), 2u);
    EXPECT_GE(host.counts.back(), 9u);
    EXPECT_EQ(out.w, -1);
    EXPECT_EQ(out.sx, -1.0f);
    EXPECT_EQ(middle.temp.Count(), 0u);
    EXPECT_FALSE(fs::exists(middle.savedPsf));
}
