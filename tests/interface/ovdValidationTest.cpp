#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "HostCallFixture.h"

using namespace Ovidane;
namespace fs = std::filesystem;

TEST(ValidateRecords, EachRefusalAnswersItsCodeInOrder) {
    struct RecordCase {
        const char* what;
        void (*spoil)(HostCall&);
        uint16_t code;
    };
    const RecordCase cases[] = {
        {"valid call", [](HostCall&) {}, 0},
        {"missing input", [](HostCall& c) { c.image.pszFile = "/nonexistent/stack.raw"; }, 2},
        {"empty input name", [](HostCall& c) { c.image.pszFile = ""; }, 2},
        {"alternate name used when the main one is null",
         [](HostCall& c) { c.image.pszFile = nullptr, c.image.pszFileAlternate = c.input.c_str(); },
         0},
        {"unknown data type", [](HostCall& c) { c.image.nDataType = 3; }, 2},
        {"modality 0", [](HostCall& c) { c.image.nModality = 0; }, 2},
        {"confocal modality", [](HostCall& c) { c.image.nModality = 3; }, 2},
        {"brightfield", [](HostCall& c) { c.image.nModality = 5; }, 0},
        {"extent4 zero", [](HostCall& c) { c.image.sExtent4 = 0; }, 2},
        {"negative depth", [](HostCall& c) { c.image.sDepth = -1; }, 2},
        {"zero spacing", [](HostCall& c) { c.image.fYSpacing = 0; }, 2},
        {"NaN spacing", [](HostCall& c) { c.image.fZSpacing = std::nanf(""); }, 2},
        {"index below 1", [](HostCall& c) { c.image.fRefractiveIndex = 0.99f; }, 16},
        {"index above 5", [](HostCall& c) { c.image.fRefractiveIndex = 5.01f; }, 16},
        {"aperture equal to index", [](HostCall& c) { c.image.fNumericalAperture = 1.515f; }, 16},
        {"ordinary optics, small ratio", [](HostCall& c) { c.image.fNumericalAperture = 0.25f; },
         16},
        {"dry 0.9 objective passes the ratio",
         [](HostCall& c) { c.image.fNumericalAperture = 0.9f, c.image.fRefractiveIndex = 1.0f; },
         0},
        {"a ratio of exactly 0.2 passes",
         [](HostCall& c) {
             c.image.fNumericalAperture = 0.2f;
             c.image.fRefractiveIndex = 1.0f;
             c.image.fZSpacing = 2.0f;
         },
         0},
        {"wavelength too short", [](HostCall& c) { c.image.fEmissionWavelength = 0.0009f; }, 15},
        {"wavelength too long", [](HostCall& c) { c.image.fEmissionWavelength = 100.5f; }, 15},
        {"50 nm is accepted by the records",
         [](HostCall& c) {
             c.image.fEmissionWavelength = 0.05f;
             c.image.fXSpacing = c.image.fYSpacing = 0.05f;
             c.image.fZSpacing = 0.1f;
         },
         0},
        {"x spacing coarse", [](HostCall& c) { c.image.fXSpacing = 1.2f; }, 17},
        {"y spacing fine", [](HostCall& c) { c.image.fYSpacing = 0.01f; }, 18},
        {"z spacing coarse", [](HostCall& c) { c.image.fZSpacing = 2.9f; }, 19},
        {"z spacing fine", [](HostCall& c) { c.image.fZSpacing = 0.02f; }, 20},
        {"unnamed PSF with nonsense numbers",
         [](HostCall& c) {
             c.psfIn.pszFile = "";
             c.psfIn.pszFileAlternate = "/nonexistent";
             c.psfIn.sWidth = -3;
         },
         0},
        {"missing PSF", [](HostCall& c) { c.psfIn.pszFile = "/nonexistent/psf.raw"; }, 2},
        {"PSF data type 2",
         [](HostCall& c) {
             c.psfIn.pszFile = c.psf.c_str();
             c.psfIn.sWidth = c.psfIn.sHeight = c.psfIn.sDepth = 8;
             c.psfIn.fXSpacing = c.psfIn.fYSpacing = c.psfIn.fZSpacing = 0.1f;
             c.psfIn.nDataType = 2;
         },
         2},
        {"PSF output in a missing directory",
         [](HostCall& c) { c.psfOut.pszFile = "/nonexistent/psf.raw"; }, 2},
        {"no output name", [](HostCall& c) { c.std.pszOutputFile = nullptr; }, 2},
        {"output in a missing directory",
         [](HostCall& c) { c.std.pszOutputFile = "/nonexistent/out.raw"; }, 2},
        {"no temporary directory", [](HostCall& c) { c.std.pszTempDirectory = ""; }, 2},
        {"missing temporary directory",
         [](HostCall& c) { c.std.pszTempDirectory = "/nonexistent/tmp"; }, 2},
        {"negative guard band", [](HostCall& c) { c.exp.sZGuardBand = -1; }, 2},
        {"record overlap has no upper limit", [](HostCall& c) { c.exp.sOverlap = 301; }, 0},
        {"negative noise factor", [](HostCall& c) { c.exp.fNoiseFactor = -1e-6f; }, 2},
        {"memory percent above 100", [](HostCall& c) { c.exp.fMemoryPercent = 100.5f; }, 2},
        {"memory percent 0", [](HostCall& c) { c.exp.fMemoryPercent = 0; }, 0},
        // Order: the first failure wins.
        {"optics before wavelength",
         [](HostCall& c) { c.image.fRefractiveIndex = 6, c.image.fEmissionWavelength = 200; }, 16},
        {"wavelength before sampling",
         [](HostCall& c) { c.image.fEmissionWavelength = 200, c.image.fXSpacing = 50; }, 15},
    };
    for (const RecordCase& c : cases) {
        HostCall call;
        c.spoil(call);
        EXPECT_EQ(call.ValidateRecords(), c.code) << c.what;
        EXPECT_EQ(call.temp.Count(), 0u) << c.what << ": the probe file stayed behind";
        EXPECT_FALSE(fs::exists(call.output)) << c.what << ": a probe created the output";
    }
}

TEST(ValidateRecords, ProbesLeaveExistingFilesUntouched) {
    HostCall call;
    std::ofstream(call.output) << "previous result";
    const std::string psfOut = call.dir.File("psf-out.raw");
    std::ofstream(psfOut) << "previous psf";
    call.psfOut.pszFile = psfOut.c_str();
    ASSERT_EQ(call.ValidateRecords(), 0);
    EXPECT_EQ(fs::file_size(call.output), 15u);
    EXPECT_EQ(fs::file_size(psfOut), 12u);
    EXPECT_EQ(call.temp.Count(), 0u);
}

TEST(CheckResolution, LimitsOfTenAndATenthThemselvesPass) {
    // NA 1.0 in water: lateral limit 0.61 * 0.5 / 2 = 0.1525 um.
    const float lateral = 0.61f * 0.5f / 2.0f;
    EXPECT_EQ(ovdCheckResolution(10.0f * lateral, 0.2f, 0.5f, 1.0f, 1.33f, 0.5f), 0);
    EXPECT_EQ(ovdCheckResolution(0.2f, 0.1f * lateral, 0.5f, 1.0f, 1.33f, 0.5f), 0);
    EXPECT_EQ(
        ovdCheckResolution(std::nextafter(10.0f * lateral, 100.0f), 0.2f, 0.5f, 1.0f, 1.33f, 0.5f),
        17);
    // An aperture equal to the index makes alpha a right angle; the check still answers.
    EXPECT_EQ(ovdCheckResolution(0.1f, 0.1f, 0.25f, 1.33f, 1.33f, 0.5f), 0);
}

namespace {

// The fixture's valid call as an argument list: its stack, optics and cut, no PSF in or out.
struct Call : HostCall {
    const char *in = input.c_str(), *out = output.c_str(), *tmp = tempPath.c_str();
    ovdArgumentList list{in,      out,   tmp, 16, 16, 4, 0.1f, 0.1f,   0.25f, 1.4f,
                         1.515f,  0.52f, 0,   0,  10, 6, 10,   1,      0,     0,
                         nullptr, 0,     0,   0,  0,  0, 0,    nullptr};
};

} // namespace

TEST(ValidateArguments, EachRefusalAnswersItsCodeInOrder) {
    struct ArgumentCase {
        const char* what;
        void (*spoil)(Call&);
        uint16_t code;
    };
    const ArgumentCase cases[] = {
        {"valid call", [](Call&) {}, 0},
        {"no input", [](Call& c) { c.list.inputFile = ""; }, 2},
        {"missing input", [](Call& c) { c.list.inputFile = "/nonexistent"; }, 2},
        {"no output", [](Call& c) { c.list.outputFile = nullptr; }, 2},
        {"output not creatable", [](Call& c) { c.list.outputFile = "/nonexistent/o"; }, 5},
        {"no temporary directory", [](Call& c) { c.list.tempDirectory = ""; }, 2},
        {"zero height", [](Call& c) { c.list.height = 0; }, 2},
        {"zero z spacing", [](Call& c) { c.list.zSpacing = 0; }, 2},
        {"zero wavelength", [](Call& c) { c.list.emissionWavelength = 0; }, 2},
        {"phase object 2", [](Call& c) { c.list.phaseObject = 2; }, 2},
        {"noise level 4", [](Call& c) { c.list.noiseLevel = 4; }, 2},
        {"reserved flag 2", [](Call& c) { c.list.reservedFlag = 2; }, 2},
        {"missing PSF", [](Call& c) { c.list.psfFile = "/nonexistent"; }, 2},
        {"PSF without size",
         [](Call& c) { c.list.psfFile = c.psf.c_str(), c.list.psfXSpacing = 0.1f; }, 2},
        {"PSF output not creatable", [](Call& c) { c.list.outputPsfFile = "/nonexistent/p"; }, 5},
        {"aperture above index", [](Call& c) { c.list.numericalAperture = 1.6f; }, 2},
        {"aperture equal to index passes that step",
         [](Call& c) { c.list.numericalAperture = 1.515f; }, 0},
        {"guard band 101", [](Call& c) { c.list.zGuardBand = 101; }, 13},
        {"guard band 100", [](Call& c) { c.list.xyGuardBand = 100; }, 0},
        {"overlap 301", [](Call& c) { c.list.overlap = 301; }, 14},
        {"50 nm", [](Call& c) { c.list.emissionWavelength = 0.05f; }, 15},
        {"11 um", [](Call& c) { c.list.emissionWavelength = 11; }, 15},
        {"small ratio", [](Call& c) { c.list.numericalAperture = 0.25f; }, 16},
        {"x spacing coarse", [](Call& c) { c.list.xSpacing = 1.2f; }, 17},
        {"z spacing fine", [](Call& c) { c.list.zSpacing = 0.02f; }, 20},
        {"guard band before wavelength",
         [](Call& c) { c.list.xyGuardBand = 200, c.list.emissionWavelength = 50; }, 13},
    };
    for (const ArgumentCase& c : cases) {
        Call call;
        c.spoil(call);
        EXPECT_EQ(ovdValidateArguments(call.list), c.code) << c.what;
        EXPECT_EQ(call.temp.Count(), 0u) << c.what;
    }
}

TEST(ValidateArguments, EmptiesAndDeletesAnExistingOutput) {
    Call call;
    std::ofstream(call.output) << "previous result";
    const std::string psfOut = call.dir.File("psf-out.raw");
    std::ofstream(psfOut) << "previous psf";
    call.list.outputPsfFile = psfOut.c_str();
    call.list.xSpacing = 50; // refused at the very end: the probes have run by then
    EXPECT_EQ(ovdValidateArguments(call.list), 17);
    EXPECT_FALSE(fs::exists(call.output));
    EXPECT_FALSE(fs::exists(psfOut));
}
