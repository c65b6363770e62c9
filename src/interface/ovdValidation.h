#pragma once
// Refusal of a call's arguments before anything is written or run. Each check answers the
// return code of the first failure in its fixed order, or 0.
#include <cstdint>
#include <string>

#include "interface/ovdinf01.h"

namespace Ovidane {

// The name a record stands for: the main field, else the alternate, else "".
std::string ovdResolveImageFileName(const ovdStructInvFilterImage* image);
// As above, but a non-null empty main field means "no file" without a look at the alternate.
std::string ovdResolvePsfFileName(const ovdStructInvFilterPsf* psf);

// A PSF model record outside its ranges answers 2 and records the reason; 0 when sound.
uint16_t ovdCheckPsfModel(const ovdStructPsfModel& model);

// A search record outside its ranges answers 2 and records the reason; 0 when sound. The
// stack's size is checked against the bin factor separately (ovdSearchBinFactor), once the
// stack itself has passed validation.
uint16_t ovdCheckSASearch(const ovdStructSASearch& search);

// The bin factor a sound search record asks for on a validated stack: 1 for the full
// search, the record's factor, or the automatic one; 0, with the reason recorded, for a
// factor that leaves fewer than 16 pixels in x or y.
uint32_t ovdSearchBinFactor(const ovdStructSASearch& search, int16_t width, int16_t height,
                            float xSpacing, float ySpacing, float numericalAperture,
                            float emissionWavelength);

// Sampling against the optics: 17/18 for x or y spacing too large/small, 19/20 for z.
uint16_t ovdCheckResolution(float xSpacing, float ySpacing, float zSpacing, float numericalAperture,
                            float refractiveIndex, float emissionWavelength);

// The aperture over the index squared is at least 0.2, which keeps the theoretical PSF within
// its model.
bool ovdIsApertureRatioAcceptable(float numericalAperture, float refractiveIndex);

// The record form. Files that exist are left untouched; probe files that did not exist
// are created and deleted again.
uint16_t ovdValidateRecords(const ovdStructInvFilterImage* image, const ovdStructInvFilterPsf* psfIn,
                            const ovdStructInvFilterPsf* psfOut,
                            const ovdStructInvFilterOpsStd* stdOptions,
                            const ovdStructInvFilterOpsExp* expOptions);

// The places of the argument-list form that validation reads.
struct ovdArgumentList {
    const char* inputFile;
    const char* outputFile;
    const char* tempDirectory;
    int16_t width, height, depth;
    float xSpacing, ySpacing, zSpacing;
    float numericalAperture, refractiveIndex, emissionWavelength;
    uint16_t phaseObject, brightfield;
    int16_t xyGuardBand, zGuardBand, overlap;
    uint16_t xyMontage;
    uint16_t noiseLevel, reservedFlag;
    const char* psfFile;
    int16_t psfWidth, psfHeight, psfDepth;
    float psfXSpacing, psfYSpacing, psfZSpacing;
    const char* outputPsfFile;
};

// The argument-list form. Unlike the record form it empties and deletes an existing
// output file (and output PSF file) while probing them.
uint16_t ovdValidateArguments(const ovdArgumentList& arguments);

} // namespace Ovidane
