#pragma once
// The driver behind the aberration estimate: the search's parameter log, the input as a
// float file, the search, and the release of the per-thread services.
#include <cstdint>
#include <string>

#include "interface/ovdinf01.h"

namespace Ovidane {

// The values of a validated estimate request.
struct ovdDetectArguments {
    std::string inputFile;
    std::string tempDirectory;
    std::string convertedFile; // where an 8-bit or 16-bit stack is converted to
    int16_t width = 0, height = 0, depth = 0;
    float xSpacing = 0, ySpacing = 0, zSpacing = 0;
    float numericalAperture = 0, refractiveIndex = 0, emissionWavelength = 0;
    int16_t xyGuardBand = 0, zGuardBand = 0, overlap = 0;
    uint16_t xyMontage = 0;
    uint16_t pixelType = 0; // 0 float, 1 16-bit, 2 8-bit
    float lowerLimit = 0, upperLimit = 0;
    ovdStructPsfModel psfModel{}; // the theoretical PSF's model; zeros: the specified one
    uint32_t binFactor = 1;       // above 1: the search runs on the stack binned in x and y
    ovdStatusCallback callback = nullptr;
    void* userData = nullptr;
};

// Runs the search and stores the estimate (0 when the search found none) through `result`.
// Answers 0 for an estimate; 9 when the input cannot be converted; the cut's own refusals
// (5 too little disk); 1 for a cancel, a failure, or a search that did not converge.
uint16_t ovdDetectSphericalAberration(const ovdDetectArguments& arguments, float* result);

} // namespace Ovidane
