#include "interface/ovdValidation.h"

#include "core/cFailureReason.h"
#include "interface/cSADetectorWithBrent.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>

namespace Ovidane {
namespace {

constexpr double kLargestFloat = 3.4028234663852886e38;

bool IsEmpty(const char* text) { return !text || !*text; }

bool CanOpen(const std::string& name, const char* mode) {
    std::FILE* file = std::fopen(name.c_str(), mode);
    if (!file)
        return false;
    std::fclose(file);
    return true;
}

// The record form's probe of a file it may write later: an existing file is opened for
// reading and writing and left as it was; otherwise the file is created and deleted.
bool ProbeWritableKeepingExisting(const std::string& name) {
    if (CanOpen(name, "r+b"))
        return true;
    if (!CanOpen(name, "wb"))
        return false;
    std::remove(name.c_str());
    return true;
}

// The argument-list form's probe: opening for writing empties an existing file, and the
// file is deleted afterwards either way.
bool ProbeWritableDiscarding(const char* name) {
    if (!CanOpen(name, "w"))
        return false;
    std::remove(name);
    return true;
}

bool IsPositiveSpacing(float value) { return value > 0 && value <= kLargestFloat; }
bool IsExtent(int16_t value) { return value >= 1; } // 32767 is the type's own limit
bool IsNonNegative(int16_t value) { return value >= 0; }

uint16_t CheckImageRecord(const ovdStructInvFilterImage* image) {
    if (!image)
        return OVD_RESULT_INVALID_ARGUMENT;
    const std::string name = ovdResolveImageFileName(image);
    if (name.empty() || !CanOpen(name, "rb"))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (image->nDataType > 2)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (image->nModality != OVD_MODALITY_WIDEFIELD_FLUORESCENCE &&
        image->nModality != OVD_MODALITY_TL_BRIGHTFIELD)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!IsExtent(image->sExtent4) || !IsExtent(image->sWidth) || !IsExtent(image->sHeight) ||
        !IsExtent(image->sDepth))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!IsPositiveSpacing(image->fXSpacing) || !IsPositiveSpacing(image->fYSpacing) ||
        !IsPositiveSpacing(image->fZSpacing))
        return OVD_RESULT_INVALID_ARGUMENT;
    return OVD_RESULT_SUCCESS;
}

// The aperture may not reach the index, and the aperture over the index squared must be at
// least 0.2 (in single precision), which keeps the theoretical PSF within its model.
bool IsApertureRatioAcceptable(float numericalAperture, float refractiveIndex) {
    const float ratio = numericalAperture / (refractiveIndex * refractiveIndex);
    return ratio >= 0.20000000298023224;
}

uint16_t CheckOptics(const ovdStructInvFilterImage* image) {
    const float n = image->fRefractiveIndex;
    const float na = image->fNumericalAperture;
    // 1 and 5, each widened by one single-precision step.
    if (!(n >= 0.9999998807907104 && n <= 5.0000001192092896))
        return OVD_RESULT_OPTICS_OUT_OF_RANGE;
    if (!(na > 0 && na < n) || !IsApertureRatioAcceptable(na, n))
        return OVD_RESULT_OPTICS_OUT_OF_RANGE;
    return OVD_RESULT_SUCCESS;
}

uint16_t CheckPsfIn(const ovdStructInvFilterPsf* psf) {
    if (!psf)
        return OVD_RESULT_SUCCESS;
    const std::string name = ovdResolvePsfFileName(psf);
    if (name.empty())
        return OVD_RESULT_SUCCESS; // an unnamed record is no PSF; its numbers don't matter
    if (!CanOpen(name, "r+b") || psf->nDataType > 1 || !IsExtent(psf->sWidth) ||
        !IsExtent(psf->sHeight) || !IsExtent(psf->sDepth) || !IsPositiveSpacing(psf->fXSpacing) ||
        !IsPositiveSpacing(psf->fYSpacing) || !IsPositiveSpacing(psf->fZSpacing))
        return OVD_RESULT_INVALID_ARGUMENT;
    return OVD_RESULT_SUCCESS;
}

uint16_t CheckStandardOptions(const ovdStructInvFilterOpsStd* options) {
    if (!options || !options->pszOutputFile)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!ProbeWritableKeepingExisting(options->pszOutputFile))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (IsEmpty(options->pszTempDirectory))
        return OVD_RESULT_INVALID_ARGUMENT;
    std::string probe = options->pszTempDirectory;
    if (probe.back() != '/')
        probe += '/';
    probe += "~testfil.tmp";
    if (!CanOpen(probe, "wb"))
        return OVD_RESULT_INVALID_ARGUMENT;
    std::remove(probe.c_str());
    return OVD_RESULT_SUCCESS;
}

uint16_t CheckExpertOptions(const ovdStructInvFilterOpsExp* options) {
    if (!options)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!IsNonNegative(options->sXYGuardBand) || !IsNonNegative(options->sZGuardBand) ||
        !IsNonNegative(options->sOverlap) || !IsNonNegative(options->sReserved))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(options->fNoiseFactor >= 0 && options->fNoiseFactor <= kLargestFloat))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(options->fMemoryPercent >= 0 && options->fMemoryPercent <= 100))
        return OVD_RESULT_INVALID_ARGUMENT;
    return OVD_RESULT_SUCCESS;
}

} // namespace

namespace {
// The main field wins whenever it is set, even to "": an empty PSF name therefore means
// "no file" and never falls through to the alternate.
template <class Record> std::string ResolveName(const Record* record) {
    if (!record)
        return {};
    if (record->pszFile)
        return record->pszFile;
    return record->pszFileAlternate ? record->pszFileAlternate : "";
}
} // namespace

std::string ovdResolveImageFileName(const ovdStructInvFilterImage* image) { return ResolveName(image); }

std::string ovdResolvePsfFileName(const ovdStructInvFilterPsf* psf) { return ResolveName(psf); }

bool ovdIsApertureRatioAcceptable(float numericalAperture, float refractiveIndex) {
    return IsApertureRatioAcceptable(numericalAperture, refractiveIndex);
}

uint16_t ovdCheckResolution(float xSpacing, float ySpacing, float zSpacing, float numericalAperture,
                            float refractiveIndex, float emissionWavelength) {
    // Every named intermediate is a single-precision value. An aperture equal to the index
    // gives t = 1, an infinite tangent and a right angle for alpha, which is well defined.
    const float t = numericalAperture / refractiveIndex;
    const float alpha = std::atan(t / std::sqrt(1.0f - t * t));
    const float s = std::sin(alpha / 2.0f);
    const float lateral = 0.61f * emissionWavelength / (2.0f * numericalAperture);
    const float axial = emissionWavelength / (4.0f * refractiveIndex * s * s);
    if (xSpacing > 10.0f * lateral || ySpacing > 10.0f * lateral)
        return OVD_RESULT_XY_SPACING_TOO_LARGE;
    if (xSpacing < 0.1f * lateral || ySpacing < 0.1f * lateral)
        return OVD_RESULT_XY_SPACING_TOO_SMALL;
    if (zSpacing > 10.0f * axial)
        return OVD_RESULT_Z_SPACING_TOO_LARGE;
    if (zSpacing < 0.1f * axial)
        return OVD_RESULT_Z_SPACING_TOO_SMALL;
    return OVD_RESULT_SUCCESS;
}

uint16_t ovdValidateRecords(const ovdStructInvFilterImage* image, const ovdStructInvFilterPsf* psfIn,
                            const ovdStructInvFilterPsf* psfOut,
                            const ovdStructInvFilterOpsStd* stdOptions,
                            const ovdStructInvFilterOpsExp* expOptions) {
    if (const uint16_t code = CheckImageRecord(image))
        return code;
    if (const uint16_t code = CheckOptics(image))
        return code;
    const float lambda = image->fEmissionWavelength;
    if (!(lambda >= 0.001f - 1.1920929e-7f && lambda <= 100.0f))
        return OVD_RESULT_WAVELENGTH_OUT_OF_RANGE;
    if (const uint16_t code =
            ovdCheckResolution(image->fXSpacing, image->fYSpacing, image->fZSpacing,
                               image->fNumericalAperture, image->fRefractiveIndex, lambda))
        return code;
    if (const uint16_t code = CheckPsfIn(psfIn))
        return code;
    if (psfOut) {
        const std::string name = ovdResolvePsfFileName(psfOut);
        if (!name.empty() && !ProbeWritableKeepingExisting(name))
            return OVD_RESULT_INVALID_ARGUMENT;
    }
    if (const uint16_t code = CheckStandardOptions(stdOptions))
        return code;
    return CheckExpertOptions(expOptions);
}

uint16_t ovdValidateArguments(const ovdArgumentList& a) {
    if (IsEmpty(a.inputFile) || !CanOpen(a.inputFile, "r"))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (IsEmpty(a.outputFile))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!ProbeWritableDiscarding(a.outputFile))
        return OVD_RESULT_CANNOT_CREATE_FILE;
    if (IsEmpty(a.tempDirectory))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(a.width > 0 && a.height > 0 && a.depth > 0))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(a.xSpacing > 0 && a.ySpacing > 0 && a.zSpacing > 0))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(a.numericalAperture > 0 && a.refractiveIndex > 0 && a.emissionWavelength > 0))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (a.phaseObject > 1 || a.brightfield > 1 || a.xyMontage > 1 || a.noiseLevel > 3 ||
        a.reservedFlag > 1)
        return OVD_RESULT_INVALID_ARGUMENT;
    // Negative guard bands or overlap describe no cut at all; they are refused with the
    // other malformed numbers rather than handed to the subvolume geometry.
    if (a.xyGuardBand < 0 || a.zGuardBand < 0 || a.overlap < 0)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!IsEmpty(a.psfFile)) {
        if (!CanOpen(a.psfFile, "r") || !(a.psfWidth > 0 && a.psfHeight > 0 && a.psfDepth > 0) ||
            !(a.psfXSpacing > 0 && a.psfYSpacing > 0 && a.psfZSpacing > 0))
            return OVD_RESULT_INVALID_ARGUMENT;
    }
    if (!IsEmpty(a.outputPsfFile) && !ProbeWritableDiscarding(a.outputPsfFile))
        return OVD_RESULT_CANNOT_CREATE_FILE;
    if (a.numericalAperture > a.refractiveIndex)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (a.xyGuardBand > 100 || a.zGuardBand > 100)
        return OVD_RESULT_GUARD_BAND_TOO_LARGE;
    if (a.overlap > 300)
        return OVD_RESULT_OVERLAP_TOO_LARGE;
    if (a.emissionWavelength > 10.0f || a.emissionWavelength < 0.1f)
        return OVD_RESULT_WAVELENGTH_OUT_OF_RANGE;
    if (!IsApertureRatioAcceptable(a.numericalAperture, a.refractiveIndex))
        return OVD_RESULT_OPTICS_OUT_OF_RANGE;
    return ovdCheckResolution(a.xSpacing, a.ySpacing, a.zSpacing, a.numericalAperture,
                              a.refractiveIndex, a.emissionWavelength);
}

// A model record outside its ranges, with the reason for the host; 0 when it is sound.
uint16_t ovdCheckPsfModel(const ovdStructPsfModel& model) {
    const char* reason = nullptr;
    if (model.nModel > OVD_PSF_MODEL_EXACT)
        reason = "unknown PSF model";
    else if (!(model.fSampleIndex == 0.0f ||
               (model.fSampleIndex >= 1.0f && model.fSampleIndex <= 5.0f)))
        reason = "the sample's refractive index must be 0 (that of the immersion) or 1 to 5";
    else if (!(model.fDepth >= 0.0f && model.fDepth <= 10000.0f))
        reason = "the depth below the coverslip must be 0 to 10000 um";
    else if (model.nReserved != 0)
        reason = "the reserved field of the PSF model must be 0";
    if (!reason)
        return OVD_RESULT_SUCCESS;
    cFailureReason::Record(reason);
    return OVD_RESULT_INVALID_ARGUMENT;
}

// A binned stack keeps at least this many pixels in x and y: fewer leave the restorations
// of the search too little of the object to score.
constexpr int32_t kSmallestBinnedSize = 16;
// Below this width or height the automatic choice bins nothing, as the detector's own rule
// does for the width.
constexpr int32_t kSmallestAutomaticallyBinned = 128;

uint16_t ovdCheckSASearch(const ovdStructSASearch& search) {
    const char* reason = nullptr;
    if (search.nSearch > OVD_SA_SEARCH_BINNED)
        reason = "unknown aberration search";
    else if (search.nSearch == OVD_SA_SEARCH_FULL && search.nBinFactor != 0)
        reason = "the full aberration search bins nothing: its bin factor must be 0";
    else if (search.nBinFactor == 1 || search.nBinFactor > OVD_MAX_SA_BIN_FACTOR)
        reason = "the bin factor of the aberration search must be 0 (automatic) or 2 to 8";
    else if (search.nReserved[0] != 0 || search.nReserved[1] != 0)
        reason = "the reserved fields of the aberration search must be 0";
    if (!reason)
        return OVD_RESULT_SUCCESS;
    cFailureReason::Record(reason);
    return OVD_RESULT_INVALID_ARGUMENT;
}

uint32_t ovdSearchBinFactor(const ovdStructSASearch& search, int16_t width, int16_t height,
                            float xSpacing, float ySpacing, float numericalAperture,
                            float emissionWavelength) {
    if (search.nSearch == OVD_SA_SEARCH_FULL)
        return 1;
    const int32_t shorter = std::min<int32_t>(width, height);
    if (search.nBinFactor == 0) {
        if (shorter < kSmallestAutomaticallyBinned)
            return 1;
        // At least 2, the smallest factor that saves work; the detector's rule where it asks
        // for more; never so much that the binned stack falls below its smallest size.
        const int32_t rule = cSADetectorWithBrent::AccelerationBinFactor(
            numericalAperture, emissionWavelength, xSpacing, ySpacing, width);
        return static_cast<uint32_t>(std::min<int32_t>(
            {std::max(2, rule), OVD_MAX_SA_BIN_FACTOR, shorter / kSmallestBinnedSize}));
    }
    if (shorter / static_cast<int32_t>(search.nBinFactor) < kSmallestBinnedSize) {
        cFailureReason::Record("the bin factor " + std::to_string(search.nBinFactor) +
                               " leaves fewer than 16 pixels of the stack in x or y");
        return 0;
    }
    return search.nBinFactor;
}

} // namespace Ovidane
