#pragma once
// The run driver behind both restoration calls: set-up (input to a float file, the run's
// parameter log), then the run stages.
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "interface/ovdinf01.h"
#include "largevolume/SubvolumeLogList.h"

namespace Ovidane {

// The driver's 42 values, in place order. File names are held as strings; an empty name
// stands for a null one.
struct ovdRunArguments {
    std::string inputFile;     // 0
    std::string outputFile;    // 1
    std::string tempDirectory; // 2
    int16_t width = 0, height = 0, depth = 0;          // 3-5
    float xSpacing = 0, ySpacing = 0, zSpacing = 0;    // 6-8
    float numericalAperture = 0, refractiveIndex = 0, emissionWavelength = 0; // 9-11
    uint16_t phaseObject = 0;                          // 12: 1 means yes
    int32_t modality = 0;                              // 13: 5 brightfield, else fluorescence
    int32_t unused14 = 0;                              // 14
    int16_t xyGuardBand = 0, zGuardBand = 0, overlap = 0; // 15-17
    uint16_t xyMontage = 0;                            // 18: 1 means yes
    uint16_t pixelType = 0;                            // 19: 0 float, 1 16-bit, 2 8-bit
    float sphericalAberration = 0;                     // 20
    uint16_t noiseLevel = 0;                           // 21: 0 auto, 1-3 classes, else place 22
    float noiseFactor = 0;                             // 22
    int32_t unused23 = 0, unused24 = 0;                // 23-24
    float memoryPercent = 100;                         // 25: no effect on the run
    std::string psfFile;                               // 26
    int16_t psfWidth = 0, psfHeight = 0, psfDepth = 0; // 27-29
    float psfXSpacing = 0, psfYSpacing = 0, psfZSpacing = 0; // 30-32
    std::string outputPsfFile;                         // 33
    int16_t* savedPsfWidth = nullptr;                  // 34
    int16_t* savedPsfHeight = nullptr;                 // 35
    int16_t* savedPsfDepth = nullptr;                  // 36
    float* savedPsfXSpacing = nullptr;                 // 37
    float* savedPsfYSpacing = nullptr;                 // 38
    float* savedPsfZSpacing = nullptr;                 // 39
    ovdStatusCallback callback = nullptr;              // 40
    void* userData = nullptr;                          // 41

    // Beyond the driver's places: the restoration method. The default, the inverse filter,
    // is what the five operations run.
    uint32_t method = OVD_METHOD_INVERSE_FILTER;
    int32_t iterations = 1;
    uint32_t acceleration = OVD_ACCELERATION_EXTRAPOLATION;
    float roughness = 0.0f;
    uint32_t start = OVD_START_DATA;
    float goldSmoothing = 0.0f;
    int32_t goldInterval = 1;
    uint16_t objectUpdates = 1; // plane methods: object updates a pass
    uint16_t psfUpdates = 1;    // blind plane method: PSF updates a pass
    // A measured PSF is used as measured (DEC_BPARAMS_PSF_AS_MEASURED); the five operations
    // keep their own way of bringing it to the stack's grid.
    bool psfAsMeasured = false;
    // The theoretical PSF's model and sample (DEC_BPARAMS_PSF_EXACT_MODEL and its keys).
    uint32_t psfModel = OVD_PSF_MODEL_SPECIFIED;
    float sampleIndex = 0.0f, focusDepth = 0.0f;
};

// What the set-up leaves for the run stages, and what the stages made that a failed run
// must clean away.
struct ovdRunState {
    cCountedPtr<cDeconLog> log;
    // Bytes per pixel of the caller's stack file, which the cut reads as it is: 4 float, or
    // 2 or 1 for 16-bit or 8-bit pixels converted by value as they are read.
    uint32_t stackPixelBytes = 4;
    cSubvolumeLogList subvolumeLogs; // the cut, once it exists
};

// The set-up half: the whole parameter log, the choice of memory files for a run whose
// temporary files fit into memory, and the look at the input stack. Answers 0, or 9 (an
// input that can't be read whole, or an unknown pixel type).
uint16_t ovdSetUpInverseFilterRun(const ovdRunArguments& arguments, ovdRunState& state);

// The second half: the cut into subvolumes, one restoration per subvolume, the blending
// into the output file, the saved PSF's geometry through the argument pointers. Answers
// the code of the cut when it fails (the subvolumes' files are then deleted), else that of
// the blending. Failures inside a restoration leave as exceptions.
uint16_t ovdRunInverseFilterStages(const ovdRunArguments& arguments, ovdRunState& state);

// The share of memory one subvolume of the run may use: the cut is sized for the working
// images of the chosen method.
int64_t ovdSubvolumeMemorySize(const ovdRunArguments& arguments, const cDeconParameter& parameters);

// Deletes what a run that ended by a failure or a cancel leaves in the temporary
// directory: the files of the cut.
void ovdDiscardRunFiles(ovdRunState& state);

// The whole run. Any failure or cancel inside answers 1, after the temporary files that
// the run made so far are deleted.
uint16_t ovdRunInverseFilter(const ovdRunArguments& arguments);

} // namespace Ovidane
