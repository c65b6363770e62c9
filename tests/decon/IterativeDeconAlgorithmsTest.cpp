#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "IterativeTestScene.h"
#include "core/cDeconLog.h"
#include "decon/cGoldsDeconAlgorithm.h"
#include "decon/cMlemNonBlindDeconAlgorithm.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "math/cFFTManager.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace IterativeTest;

namespace {

const cImageDimensions kSize{32, 32, 16};
constexpr int32_t kPasses = 3;

// The log of one subvolume that is the whole stack, with a PSF file of its size and
// spacing, restored from the data themselves.
cCountedPtr<cDeconLog> IterativeLog(const OvidaneTest::TempDir& dir) {
    cCountedPtr<cDeconLog> log(new cDeconLog());
    cDeconParameter& p = log->GetParameters();
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("stack.raw"));
    p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, dir.File("result.raw"));
    p.SetString(DEC_SPARAMS_INPUT_PSF_FILE, dir.File("psf.raw"));
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, kSize.x);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, kSize.y);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, kSize.z);
    p.SetInt(DEC_IPARAMS_PSF_WIDTH, kSize.x);
    p.SetInt(DEC_IPARAMS_PSF_HEIGHT, kSize.y);
    p.SetInt(DEC_IPARAMS_PSF_DEPTH, kSize.z);
    for (DecRealKey key : {DEC_RPARAMS_X_SPACING, DEC_RPARAMS_Y_SPACING, DEC_RPARAMS_PSF_X_SPACING,
                           DEC_RPARAMS_PSF_Y_SPACING})
        p.SetReal(key, 0.1f);
    p.SetReal(DEC_RPARAMS_Z_SPACING, 0.2f);
    p.SetReal(DEC_RPARAMS_PSF_Z_SPACING, 0.2f);
    p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, 1.3f);
    p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, 1.515f);
    p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 520.0f);
    p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_WF_FLUORESCENCE);
    p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_PSF_INPUT);
    p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_CALCULATED);
    p.SetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD, DEC_FLAG_IGM_ORIGINAL_DATA);
    p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ALWAYS);
    p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, kPasses);
    p.SetReal(DEC_RPARAMS_GOODS_FACTOR, 2.0f);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND, 2);
    return log;
}

// Writes the stack and the PSF file.
void WriteScene(const OvidaneTest::TempDir& dir) {
    cFFTManager::Instance().AddInstance(kSize, 1, 3);
    cFFTManager::Instance().InitializePlans();
    const Scene scene = MakeScene(kSize, 6000.0f, 10.0f, 5);
    OvidaneTest::WriteRawAs<float>(dir.File("stack.raw"), Pixels(scene.data));
    // The same Gaussian as the scene's, centred in the file's volume.
    OvidaneTest::WriteRawAs<float>(
        dir.File("psf.raw"), OvidaneTest::MakeGaussianPsf(kSize.x, kSize.y, kSize.z, 1.5f, 2.0f).v);
    cFFTManager::Instance().ReleaseThreadInstances();
}

void RunThrough(cDeconAlgorithm& algorithm) {
    algorithm.SetSubvolumeProgress(1, 1);
    algorithm.Initialize();
    algorithm.SetUp();
    algorithm.Prepare();
    algorithm.Run();
    cFFTManager::Instance().ReleaseThreadInstances();
}

} // namespace

// What a run does with the settings whose plain reading is open, and with a start file it
// cannot read.
TEST(IterativeDeconAlgorithms, OpenSettingsAndAnUnreadableStartFile) {
    OvidaneTest::TempDir dir;
    WriteScene(dir);

    // Gold's blur between the passes: an interval of 0 means never, not a division by 0.
    cCountedPtr<cDeconLog> log = IterativeLog(dir);
    log->GetParameters().SetReal(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS, 1.0f);
    EXPECT_TRUE(cGoldsDeconAlgorithm(log).GetIterationSmoothing().IsNull());
    log->GetParameters().SetInt(DEC_IPARAMS_GOLDS_SMOOTH_ITER, 3);
    EXPECT_FALSE(cGoldsDeconAlgorithm(log).GetIterationSmoothing().IsNull());

    // A PSF derived from each subvolume's own data is not shared with the others.
    log->GetParameters().SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_AUTOCORRELATION);
    cCountedPtr<cSharedPsfFirstGuess> shared;
    cMlemNonBlindDeconAlgorithm(log).SharePsfFirstGuess(shared);
    EXPECT_TRUE(shared.IsNull());
    log->GetParameters().SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_PSF_INPUT);
    cMlemNonBlindDeconAlgorithm first(log);
    first.SharePsfFirstGuess(shared);
    EXPECT_FALSE(shared.IsNull());
    EXPECT_EQ(first.GetPsfFirstGuess().Get(), shared.Get());

    // A start file that is not there ends the run with its name, before any pass.
    for (bool gold : {false, true}) {
        cCountedPtr<cDeconLog> missing = IterativeLog(dir);
        missing->GetParameters().SetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD,
                                         DEC_FLAG_IGM_OBJECT_INPUT);
        missing->GetParameters().SetString(DEC_SPARAMS_INPUT_OBJECT_FILE, dir.File("gone.raw"));
        cCountedPtr<cDeconAlgorithm> algorithm;
        if (gold)
            algorithm = new cGoldsDeconAlgorithm(missing);
        else
            algorithm = new cMlemNonBlindDeconAlgorithm(missing);
        std::string message;
        try {
            RunThrough(*algorithm);
        } catch (const cException& failure) {
            message = failure.GetMessage();
        }
        cFFTManager::Instance().ReleaseThreadInstances();
        EXPECT_NE(message.find(dir.File("gone.raw")), std::string::npos) << message;
        EXPECT_EQ(missing->GetParameters().GetInt(DEC_IPARAMS_CURRENT_ITERATION), 0);
        EXPECT_FALSE(std::filesystem::exists(dir.File("result.raw")));
    }
}
