#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/cDeconLog.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "math/cFFTManager.h"
#include "support/RawStack.h"
#include "support/StatusHost.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

constexpr uint32_t kX = 16, kY = 16, kZ = 8;

std::vector<float> Gaussian(float sigmaXY, float sigmaZ, float cx, float cy, float cz) {
    return Pixels(MakeImage({kX, kY, kZ}, [=](uint32_t x, uint32_t y, uint32_t z) {
        const float r2 = ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / (sigmaXY * sigmaXY) +
                         (z - cz) * (z - cz) / (sigmaZ * sigmaZ);
        return std::exp(-0.5f * r2);
    }));
}

// The log of one subvolume that is the whole stack, as the run stages fill it: a measured
// PSF of the stack's size and spacing, a fixed noise class.
cCountedPtr<cDeconLog> SubvolumeLog(const OvidaneTest::TempDir& dir) {
    cCountedPtr<cDeconLog> log(new cDeconLog());
    cDeconParameter& p = log->GetParameters();
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("stack.raw"));
    p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, dir.File("result.raw"));
    p.SetString(DEC_SPARAMS_INPUT_PSF_FILE, dir.File("psf.raw"));
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, kX);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, kY);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, kZ);
    p.SetInt(DEC_IPARAMS_PSF_WIDTH, kX);
    p.SetInt(DEC_IPARAMS_PSF_HEIGHT, kY);
    p.SetInt(DEC_IPARAMS_PSF_DEPTH, kZ);
    for (DecRealKey key : {DEC_RPARAMS_X_SPACING, DEC_RPARAMS_Y_SPACING, DEC_RPARAMS_PSF_X_SPACING,
                           DEC_RPARAMS_PSF_Y_SPACING})
        p.SetReal(key, 0.1f);
    p.SetReal(DEC_RPARAMS_Z_SPACING, 0.3f);
    p.SetReal(DEC_RPARAMS_PSF_Z_SPACING, 0.3f);
    p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, 1.3f);
    p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, 1.515f);
    p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 520.0f);
    p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_WF_FLUORESCENCE);
    p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, DEC_FLAG_NOISE_LEVEL_LOW);
    p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_PSF_INPUT);
    p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_CALCULATED);
    p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_AUTO_CALCULATION);
    p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ALWAYS);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, 1);
    return log;
}

// One bead, blurred by the same Gaussian that the PSF file holds, on a background of 10.
void WriteStackAndPsf(const OvidaneTest::TempDir& dir) {
    std::vector<float> stack = Gaussian(1.3f, 1.5f, 7, 9, 4);
    for (float& v : stack)
        v = 10.0f + 500.0f * v;
    WriteRaw(dir.File("stack.raw"), stack);
    WriteRaw(dir.File("psf.raw"), Gaussian(1.3f, 1.5f, kX / 2, kY / 2, kZ / 2));
}

} // namespace

// Restoring a bead blurred by exactly the PSF of the file with the smallest K rings
// strongly: a good part of the result lies below 0 before the compression. A measured PSF
// may also be cleaned before use: band limit, radial average, background outside the
// hourglass that holds its light, the hourglass itself, equal plane sums. The background
// step needs the hourglass's mask, which only the set-up can hand over.
TEST(cInverseFilterDeconAlgorithm, ARunRestoresInPlaceAndOnlyPhaseObjectsKeepNegativeValues) {
    OvidaneTest::TempDir dir;
    WriteStackAndPsf(dir);
    struct Case {
        const char* name;
        bool phase, cleanPsf, highNa;
    };
    std::vector<float> results[2];
    for (const Case& c : {Case{"plain", false, false, false}, Case{"phase", true, false, false},
                          Case{"cleaned PSF", false, true, false},
                          Case{"cleaned PSF, high NA", false, true, true}}) {
        SCOPED_TRACE(c.name);
        cCountedPtr<cDeconLog> log = SubvolumeLog(dir);
        cDeconParameter& p = log->GetParameters();
        p.SetBool(DEC_BPARAMS_IS_PHASEOBJECT, c.phase);
        if (c.cleanPsf) {
            p.SetBool(DEC_BPARAMS_PREPROCESS_PSF, true);
            p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_MEASURED);
            p.SetBool(DEC_BPARAMS_PSF_HIGH_NA, c.highNa);
            p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, 1.0f);
            // The masks of this chain take the wavelength in micrometres as it stands.
            p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 0.52f);
        }
        std::filesystem::remove(dir.File("result.raw"));
        StatusHost host;
        cInverseFilterDeconAlgorithm algorithm(log);
        algorithm.SetStatusCallback(&StatusHost::Record, &host);
        algorithm.SetSubvolumeProgress(1, 1);
        algorithm.Initialize();
        EXPECT_TRUE(algorithm.IsInitialized());
        algorithm.SetUp();
        algorithm.Prepare();
        algorithm.Run();

        // In place: the result is the loaded image itself, and the file holds it.
        const cFloatImagePtr result = algorithm.GetResultImage();
        ASSERT_FALSE(result.IsNull());
        EXPECT_EQ(result.Get(), algorithm.GetFramework()->GetOriginalImage().Get());
        const std::vector<float> written = ReadRaw(dir.File("result.raw"));
        EXPECT_EQ(written[37], result->GetSlicePointer(0)[37]);
        EXPECT_TRUE(
            std::all_of(written.begin(), written.end(), [](float v) { return std::isfinite(v); }));
        ASSERT_GT(host.seen.size(), 2u);
        EXPECT_FLOAT_EQ(host.seen.back().fPercentDone, 100.0f);
        if (!c.cleanPsf)
            results[c.phase] = written;
        cFFTManager::Instance().ReleaseThreadInstances();
    }
    const auto negatives = [](const std::vector<float>& values) {
        return std::count_if(values.begin(), values.end(), [](float v) { return v < 0; });
    };
    EXPECT_GT(negatives(results[1]), static_cast<long>(kX * kY * kZ / 50));
    EXPECT_EQ(negatives(results[0]), 0);
}
