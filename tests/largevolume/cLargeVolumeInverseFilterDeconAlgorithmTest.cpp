#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "core/DeconKeys.h"
#include "core/cDeconLog.h"
#include "core/cMessageSink.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "largevolume/cLargeVolumeInverseFilterDeconAlgorithm.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;
namespace fs = std::filesystem;

namespace {

// The score of a set of restored subvolumes, worked out directly from their pixels.
double ExpectedFigureOfMerit(const std::vector<std::vector<float>>& subvolumes) {
    double sum = 0, largest = 0;
    for (const std::vector<float>& v : subvolumes) {
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

// The search's log of a whole stack: what the aberration detector fills, everything else
// left at 0 (automatic noise level, no background method, computed PSF).
cCountedPtr<cDeconLog> SearchLog(const std::string& stackFile, const std::string& tempDir,
                                 const BeadStack& s) {
    cCountedPtr<cDeconLog> log(new cDeconLog());
    cDeconParameter& p = log->GetParameters();
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, s.w);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, s.h);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, s.d);
    p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, 1.4f);
    p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, 1.515f);
    p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 0.52f);
    p.SetReal(DEC_RPARAMS_X_SPACING, 0.1f);
    p.SetReal(DEC_RPARAMS_Y_SPACING, 0.1f);
    p.SetReal(DEC_RPARAMS_Z_SPACING, 0.25f);
    p.SetInt(DEC_IPARAMS_BINFACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR, 1);
    p.SetFlag(DEC_FPARAMS_SUBVOLUME_METHOD, DEC_FLAG_SVM_DYNAMIC);
    p.SetBool(DEC_BPARAMS_IS_2D, s.d == 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XYGUARDBAND, 10);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZGUARDBAND, 6);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, 10);
    p.SetBool(DEC_BPARAMS_SUBVOLUME_XYMONTAGE, true);
    p.SetBool(DEC_BPARAMS_INTENSITY_CORRECTION, true);
    p.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, GetSubvolumeMemoryBudget(1));
    p.SetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE, DEC_FLAG_IIS_VOLUME);
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, stackFile);
    p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
    p.SetString(DEC_SPARAMS_TEMP_DIRECTORY, tempDir);
    p.SetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE, false);
    return log;
}

struct Search {
    TempDir dir{"ovd-lvif"};
    TempDir temp{"ovd-lvif-temp"};
    BeadStack stack =
        MakeBeadStack(160, 160, 8, GridOfBeads(160, 160, 8, 20, 4, 4000.0f), 1.0f, 1.5f, 100.0f, 7);
    std::string stackFile = dir.File("stack.raw");
    cCountedPtr<cDeconLog> log;

    Search() {
        cMessageSink::Silence(); // the restorations' reports are not what is tested here
        WriteRawAs<float>(stackFile, stack.v);
        log = SearchLog(stackFile, temp.Path().string(), stack);
    }

    ~Search() { cMessageSink::ToStandardOutput(); }

    // The score from the result files that the latest evaluation left.
    static double ScoreOfResultFiles(const cLargeVolumeInverseFilterDeconAlgorithm& a) {
        std::vector<std::vector<float>> results;
        for (const cCountedPtr<cDeconLog>& l : *a.GetSubvolumeLogs())
            results.push_back(
                ReadRaw(l->GetParameters().GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE)));
        return ExpectedFigureOfMerit(results);
    }
};

} // namespace

TEST(LargeVolumeInverseFilter, EvaluationsRestoreEverySubvolumeOfOneCutAtTheLogsAberration) {
    Search search;
    // A budget that cuts the 160 x 160 stack into 3 x 3.
    search.log->GetParameters().SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, 287500);
    cCountedPtr<cLargeVolumeInverseFilterDeconAlgorithm> algorithm(
        new cLargeVolumeInverseFilterDeconAlgorithm(search.log));
    ASSERT_EQ(algorithm->Prepare(), 0);
    const std::size_t count = algorithm->GetSubvolumeLogs()->size();
    EXPECT_EQ(count, 9u);
    std::vector<std::string> inputs;
    for (const cCountedPtr<cDeconLog>& l : *algorithm->GetSubvolumeLogs())
        inputs.push_back(l->GetParameters().GetString(DEC_SPARAMS_ORIGINAL_FILE));

    cDeconParameter& p = search.log->GetParameters();
    p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, 0.0f);
    ASSERT_EQ(algorithm->Evaluate(), 0);
    const double atZero = algorithm->GetResult();
    EXPECT_GT(atZero, 0.0);
    EXPECT_NEAR(atZero, Search::ScoreOfResultFiles(*algorithm), 1e-5 * atZero);
    // The inputs stay for the next evaluation; each subvolume ran at the log's aberration.
    for (const std::string& input : inputs)
        EXPECT_TRUE(fs::exists(input)) << input;

    p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, 4.0f);
    ASSERT_EQ(algorithm->Evaluate(), 0);
    const double atFour = algorithm->GetResult();
    EXPECT_NEAR(atFour, Search::ScoreOfResultFiles(*algorithm), 1e-5 * atFour);
    EXPECT_NE(atFour, atZero);
    for (const cCountedPtr<cDeconLog>& l : *algorithm->GetSubvolumeLogs())
        EXPECT_EQ(l->GetParameters().GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION), 4.0f);

    p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, 0.0f);
    ASSERT_EQ(algorithm->Evaluate(), 0);
    EXPECT_EQ(algorithm->GetResult(), atZero) << "the same pixels restore to the same score";

    // Going, the object takes every file of the cut with it.
    algorithm = nullptr;
    EXPECT_EQ(search.temp.Count(), 0u);
    EXPECT_TRUE(fs::exists(search.stackFile));
}

TEST(LargeVolumeInverseFilter, SharedPsfAndKeptTransformsFollowTheSpareMemoryAndChangeNoScore) {
    Search search;
    search.log->GetParameters().SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, 287500); // 3 x 3
    // The same cut four times over: all transforms kept (no host budget), two kept, none,
    // and all kept by a search that writes no result files.
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
    for (float aberration : {0.0f, 3.0f, -2.0f, 0.0f}) {
        p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, aberration);
        std::vector<double> scores;
        for (const auto& each : searches) {
            ASSERT_EQ(each->Evaluate(), 0);
            scores.push_back(each->GetResult());
        }
        EXPECT_EQ(scores[1], scores[0]) << aberration;
        EXPECT_EQ(scores[2], scores[0]) << aberration;
        EXPECT_EQ(scores[3], scores[0]) << aberration;
    }
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
    searches.clear();
    EXPECT_EQ(search.temp.Count(), 0u);
}
