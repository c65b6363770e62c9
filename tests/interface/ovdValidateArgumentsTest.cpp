#include <gtest/gtest.h>

#include <filesystem>

#include "HostCallFixture.h"

using namespace Ovidane;
namespace fs = std::filesystem;

namespace {

ovdArgumentList ValidList(const HostCall& c) {
    return ovdArgumentList{c.input.c_str(),
                           c.output.c_str(),
                           c.tempPath.c_str(),
                           16,
                           16,
                           4,
                           0.1f,
                           0.1f,
                           0.25f,
                           1.4f,
                           1.515f,
                           0.52f,
                           0,
                           0,
                           10,
                           6,
                           10,
                           1,
                           0,
                           0,
                           nullptr,
                           0,
                           0,
                           0,
                           0,
                           0,
                           0,
                           nullptr};
}

} // namespace

TEST(ValidateArguments, EachRefusalAnswersItsCodeInOrder) {
    struct ArgumentCase {
        const char* what;
        void (*spoil)(ovdArgumentList&, const HostCall&);
        uint16_t code;
    };
    const ArgumentCase cases[] = {
        {"valid call", [](ovdArgumentList&, const HostCall&) {}, 0},
        {"no input", [](ovdArgumentList& a, const HostCall&) { a.inputFile = ""; }, 2},
        {"missing input", [](ovdArgumentList& a, const HostCall&) { a.inputFile = "/nonexistent"; },
         2},
        {"no output", [](ovdArgumentList& a, const HostCall&) { a.outputFile = nullptr; }, 2},
        {"output not creatable",
         [](ovdArgumentList& a, const HostCall&) { a.outputFile = "/nonexistent/o"; }, 5},
        {"no temporary directory",
         [](ovdArgumentList& a, const HostCall&) { a.tempDirectory = ""; }, 2},
        {"zero height", [](ovdArgumentList& a, const HostCall&) { a.height = 0; }, 2},
        {"zero z spacing", [](ovdArgumentList& a, const HostCall&) { a.zSpacing = 0; }, 2},
        {"zero wavelength", [](ovdArgumentList& a, const HostCall&) { a.emissionWavelength = 0; },
         2},
        {"phase object 2", [](ovdArgumentList& a, const HostCall&) { a.phaseObject = 2; }, 2},
        {"noise level 4", [](ovdArgumentList& a, const HostCall&) { a.noiseLevel = 4; }, 2},
        {"reserved flag 2", [](ovdArgumentList& a, const HostCall&) { a.reservedFlag = 2; }, 2},
        {"missing PSF", [](ovdArgumentList& a, const HostCall&) { a.psfFile = "/nonexistent"; }, 2},
        {"PSF without size",
         [](ovdArgumentList& a, const HostCall& c) {
             a.psfFile = c.psf.c_str();
             a.psfXSpacing = 0.1f;
         },
         2},
        {"PSF output not creatable",
         [](ovdArgumentList& a, const HostCall&) { a.outputPsfFile = "/nonexistent/p"; }, 5},
        {"aperture above index",
         [](ovdArgumentList& a, const HostCall&) { a.numericalAperture = 1.6f; }, 2},
        {"aperture equal to index passes that step",
         [](ovdArgumentList& a, const HostCall&) { a.numericalAperture = 1.515f; }, 0},
        {"guard band 101", [](ovdArgumentList& a, const HostCall&) { a.zGuardBand = 101; }, 13},
        {"guard band 100", [](ovdArgumentList& a, const HostCall&) { a.xyGuardBand = 100; }, 0},
        {"overlap 301", [](ovdArgumentList& a, const HostCall&) { a.overlap = 301; }, 14},
        {"50 nm", [](ovdArgumentList& a, const HostCall&) { a.emissionWavelength = 0.05f; }, 15},
        {"11 um", [](ovdArgumentList& a, const HostCall&) { a.emissionWavelength = 11; }, 15},
        {"small ratio", [](ovdArgumentList& a, const HostCall&) { a.numericalAperture = 0.25f; },
         16},
        {"x spacing coarse", [](ovdArgumentList& a, const HostCall&) { a.xSpacing = 1.2f; }, 17},
        {"z spacing fine", [](ovdArgumentList& a, const HostCall&) { a.zSpacing = 0.02f; }, 20},
        {"guard band before wavelength",
         [](ovdArgumentList& a, const HostCall&) {
             a.xyGuardBand = 200;
             a.emissionWavelength = 50;
         },
         13},
    };
    for (const ArgumentCase& c : cases) {
        HostCall call;
        ovdArgumentList list = ValidList(call);
        c.spoil(list, call);
        EXPECT_EQ(ovdValidateArguments(list), c.code) << c.what;
        EXPECT_EQ(call.temp.Count(), 0u) << c.what;
    }
}

TEST(ValidateArguments, EmptiesAndDeletesAnExistingOutput) {
    HostCall call;
    std::ofstream(call.output) << "previous result";
    const std::string psfOut = call.dir.File("psf-out.raw");
    std::ofstream(psfOut) << "previous psf";
    ovdArgumentList list = ValidList(call);
    list.outputPsfFile = psfOut.c_str();
    list.xSpacing = 50; // refused at the very end: the probes have run by then
    EXPECT_EQ(ovdValidateArguments(list), 17);
    EXPECT_FALSE(fs::exists(call.output));
    EXPECT_FALSE(fs::exists(psfOut));
}
