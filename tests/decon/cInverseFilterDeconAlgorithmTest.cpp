#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/cDeconLog.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "math/cFFTManager.h"
#include "support/TempDir.h"
#include "support/RawStack.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

constexpr uint32_t kX = 16, kY = 16, kZ = 8;

std::vector<float> Gaussian(float sigmaXY, float sigmaZ, float cx, float cy, float cz) {
    std::vector<float> values(kX * kY * kZ);
    for (uint32_t z = 0; z < kZ; ++z)
        for (uint32_t y = 0; y < kY; ++y)
            for (uint32_t x = 0; x < kX; ++x) {
                const float r2 = ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / (sigmaXY * sigmaXY) +
                                 (z - cz) * (z - cz) / (sigmaZ * sigmaZ);
                values[(z * kY + y) * kX + x] = std::exp(-0.5f * r2);
            }
    return values;
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

struct HostRecord {
    int updates = 0;
    float lastPercent = 0;
};

uint16_t Reporter(ovdStructInvFilterStatus* status, void* userData) {
    HostRecord* record = static_cast<HostRecord*>(userData);
    ++record->updates;
    record->lastPercent = status->fPercentDone;
    return OVD_STATUS_CONTINUE;
}



} // namespace

// Restoring a bead blurred by exactly the PSF of the file with the smallest K rings
// strongly: a good part of the result lies below 0 before the compression.
TEST(cInverseFilterDeconAlgorithm, ARunRestoresInPlaceAndOnlyPhaseObjectsKeepNegativeValues) {
    OvidaneTest::TempDir dir;
    WriteStackAndPsf(dir);
    std::vector<float> results[2];
    for (bool phase : {false, true}) {
        cCountedPtr<cDeconLog> log = SubvolumeLog(dir);
        log->GetParameters().SetBool(DEC_BPARAMS_IS_PHASEOBJECT, phase);
        HostRecord record;
        cInverseFilterDeconAlgorithm algorithm(log);
        algorithm.SetStatusCallback(Reporter, &record);
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
        results[phase] = ReadRaw(dir.File("result.raw"));
        EXPECT_EQ(results[phase][37], result->GetSlicePointer(0)[37]);
        EXPECT_GT(record.updates, 2);
        EXPECT_FLOAT_EQ(record.lastPercent, 100.0f);
        cFFTManager::Instance().ReleaseThreadInstances();
    }
    const auto negatives = [](const std::vector<float>& values) {
        return std::count_if(values.begin(), values.end(), [](float v) { return v < 0; });
    };
    EXPECT_GT(negatives(results[1]), static_cast<long>(kX * kY * kZ / 50));
    EXPECT_EQ(negatives(results[0]), 0);
    // The restored bead stands where it was measured.
    const auto peak = std::max_element(results[0].begin(), results[0].end()) - results[0].begin();
    EXPECT_EQ(peak, (4 * kY + 9) * kX + 7);
}

// A measured PSF may be cleaned before use: band limit, radial average, background outside
// the hourglass that holds its light, the hourglass itself, equal plane sums. The
// background step needs the hourglass's mask, which only the set-up can hand over.
TEST(cInverseFilterDeconAlgorithm, MeasuredPsfPassesThePreprocessingChain) {
    OvidaneTest::TempDir dir;
    WriteStackAndPsf(dir);
    for (bool highNa : {false, true}) {
        cCountedPtr<cDeconLog> log = SubvolumeLog(dir);
        cDeconParameter& p = log->GetParameters();
        p.SetBool(DEC_BPARAMS_PREPROCESS_PSF, true);
        p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_MEASURED);
        p.SetBool(DEC_BPARAMS_PSF_HIGH_NA, highNa);
        p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, 1.0f);
        // The masks of this chain take the wavelength in micrometres as it stands.
        p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 0.52f);
        std::filesystem::remove(dir.File("result.raw"));
        cInverseFilterDeconAlgorithm algorithm(log);
        algorithm.Initialize();
        algorithm.SetUp();
        algorithm.Prepare();
        ASSERT_NO_THROW(algorithm.Run()) << highNa;
        const std::vector<float> result = ReadRaw(dir.File("result.raw"));
        EXPECT_TRUE(
            std::all_of(result.begin(), result.end(), [](float v) { return std::isfinite(v); }));
        cFFTManager::Instance().ReleaseThreadInstances();
    }
}
