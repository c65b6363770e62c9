#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "core/DeconKeys.h"
#include "core/cDeconLog.h"
#include "core/cMessageSink.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "largevolume/SubvolumeRun.h"
#include "largevolume/cLargeVolumeInverseFilterDeconAlgorithm.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;
namespace fs = std::filesystem;

namespace {

// A 160 x 160 x 8 stack of beads cut 3 x 3, with the optics the aberration detector fills
// in and everything else left at 0 (automatic noise level, no background method, computed
// PSF).
struct Search {
    TempDir dir{"ovd-lvif"};
    TempDir temp{"ovd-lvif-temp"};
    BeadStack stack =
        MakeBeadStack(160, 160, 8, GridOfBeads(160, 160, 8, 20, 4, 4000.0f), 1.0f, 1.5f, 100.0f, 7);
    std::string stackFile = dir.File("stack.raw");
    cCountedPtr<cDeconLog> log{new cDeconLog};

    Search() {
        cMessageSink::Silence(); // the restorations' reports are not what is tested here
        WriteRaw(stackFile, stack.v);
        cDeconParameter& p = log->GetParameters();
        SetCutParameters(p, {{160, 160, 8}, 10, 6, 10, false, 287500}, stackFile,
                         temp.Path().string());
        p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, 1.4f);
        p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, 1.515f);
        p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 0.52f);
        p.SetReal(DEC_RPARAMS_X_SPACING, 0.1f);
        p.SetReal(DEC_RPARAMS_Y_SPACING, 0.1f);
        p.SetReal(DEC_RPARAMS_Z_SPACING, 0.25f);
        p.SetBool(DEC_BPARAMS_INTENSITY_CORRECTION, true);
        p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
    }

    ~Search() { cMessageSink::ToStandardOutput(); }
};

// The score of the result files that the latest evaluation left, worked out directly from
// their pixels.
double ScoreOfResultFiles(const cLargeVolumeInverseFilterDeconAlgorithm& a) {
    double sum = 0, largest = 0;
    for (const cCountedPtr<cDeconLog>& l : *a.GetSubvolumeLogs()) {
        const std::vector<float> v =
            ReadRaw(l->GetParameters().GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE));
        const auto [lo, hi] = std::minmax_element(v.begin(), v.end());
        const double range = double(*hi - *lo);
        if (range == 0)
            continue;
        double scaled = 0;
        for (float p : v)
            scaled += (p - *lo) / range;
        sum += scaled * range * range;
        largest = std::max(largest, range);
    }
    return largest == 0 ? 0 : sum / (largest * largest);
}

} // namespace

// The same cut searched four ways: all transforms kept (no host budget), two kept, none,
// and all kept by a search that writes no result files. Every evaluation restores each
// subvolume at the log's aberration from inputs that stay for the next one, and scores
// them as their result files score; what is kept or shared changes no score and no pixel.
TEST(LargeVolumeInverseFilter, EvaluationsRestoreEverySubvolumeAtTheLogsAberrationWhateverIsKept) {
    Search search;
    std::vector<cCountedPtr<cLargeVolumeInverseFilterDeconAlgorithm>> searches;
    std::vector<std::size_t> kept;
    for (int variant = 0; variant < 4; ++variant) {
        searches.push_back(new cLargeVolumeInverseFilterDeconAlgorithm(search.log));
        searches.back()->SetWritesResultFiles(variant != 3);
        if (variant == 1 || variant == 2) {
            const cImageDimensions size = PaddedSizeOf(searches[0]->GetSubvolumeLogs());
            const auto image = int64_t(size.Voxels() * 4);
            const int64_t spectrum = image / size.x * (size.x + 2);
            SetRunMemoryBudget(variant == 1 ? 16 * image + 2 * spectrum + 1 : 1);
        }
        const int32_t prepared = searches.back()->Prepare();
        SetRunMemoryBudget(0);
        ASSERT_EQ(prepared, 0);
        ASSERT_EQ(searches.back()->GetSubvolumeLogs()->size(), 9u);
        kept.push_back(searches.back()->GetKeptSpectrumCount());
    }
    EXPECT_EQ(kept, (std::vector<std::size_t>{9, 2, 0, 9}));

    // Evaluations that fill the kept transforms, read them, and come back to a value.
    cDeconParameter& p = search.log->GetParameters();
    std::vector<double> first;
    for (float aberration : {0.0f, 3.0f, -2.0f, 0.0f}) {
        SCOPED_TRACE(testing::Message() << "aberration " << aberration);
        p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, aberration);
        std::vector<double> scores;
        for (const auto& each : searches) {
            ASSERT_EQ(each->Evaluate(), 0);
            scores.push_back(each->GetResult());
        }
        EXPECT_GT(scores[0], 0.0);
        EXPECT_NEAR(scores[0], ScoreOfResultFiles(*searches[0]), 1e-5 * scores[0]);
        EXPECT_EQ(scores, std::vector<double>(4, scores[0]));
        for (const cCountedPtr<cDeconLog>& l : *searches[0]->GetSubvolumeLogs()) {
            const cDeconParameter& sub = l->GetParameters();
            EXPECT_EQ(sub.GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION), aberration);
            EXPECT_TRUE(fs::exists(sub.GetString(DEC_SPARAMS_ORIGINAL_FILE)));
        }
        first.push_back(scores[0]);
    }
    EXPECT_NE(first[1], first[0]);
    EXPECT_EQ(first[3], first[0]) << "the same pixels restore to the same score";

    // Its result files are still the empty ones that naming them made.
    for (const auto& log : *searches[3]->GetSubvolumeLogs())
        EXPECT_EQ(fs::file_size(log->GetParameters().GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE)), 0u);
    EXPECT_THROW(searches[3]->Blend(), std::exception);
    // The restored subvolumes themselves, against each restored on its own from scratch,
    // with a PSF of its own.
    for (std::size_t i = 0; i < 9; ++i) {
        auto output = [&](std::size_t variant) {
            return (*searches[variant]->GetSubvolumeLogs())[i]->GetParameters().GetString(
                DEC_SPARAMS_OUTPUT_IMAGE_FILE);
        };
        auto result = [&](std::size_t variant) { return ReadRaw(output(variant)); };
        const std::vector<float> kept = result(0);
        EXPECT_TRUE(result(1) == kept && result(2) == kept) << "subvolume " << i;
        fs::remove(output(0));
        cInverseFilterDeconAlgorithm alone((*searches[0]->GetSubvolumeLogs())[i]);
        alone.Initialize();
        alone.SetUp();
        alone.Prepare();
        alone.Run();
        EXPECT_TRUE(result(0) == kept) << "subvolume " << i;
    }
    // Going, the searches take every file of their cuts with them.
    searches.clear();
    EXPECT_EQ(search.temp.Count(), 0u);
    EXPECT_TRUE(fs::exists(search.stackFile));
}
