#include "interface/ovdRunInverseFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <string>

#include "core/DeconKeys.h"
#include "core/cFailureReason.h"
#include "decon/cLoadFilePsfFirstGuess.h"
#include "decon/cPsfCache.h"
#include "interface/ovdRunSetup.h"
#include "io/cTempFileGenerator.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "largevolume/cSubvoluming.h"
#include "math/cFFT.h"
#include "platform/MemoryFiles.h"

namespace Ovidane {
namespace {

int32_t NoiseLevelFlag(uint16_t level) {
    switch (level) {
    case 0: return DEC_FLAG_NOISE_LEVEL_ESTIMATE;
    case 1: return DEC_FLAG_NOISE_LEVEL_LOW;
    case 2: return DEC_FLAG_NOISE_LEVEL_MEDIUM;
    case 3: return DEC_FLAG_NOISE_LEVEL_HIGH;
    default: return DEC_FLAG_NOISE_LEVEL_OTHER;
    }
}

// An 8-bit or 16-bit stack needs no float copy: the cut reads it as it is and converts
// each pixel by value (cSubvoluming::SetStackPixelBytes). The run still answers as one that
// converts: 5 when the temporary disk could not hold a float copy, 9 when the stack can't
// be read whole.
template <class Source> uint16_t LookAtIntegerStack(const ovdRunArguments& a, ovdRunState& state) {
    // The estimate is computed as the conversion's own size check always was: in 32-bit
    // unsigned arithmetic, in thousands of bytes. It can wrap for huge stacks; the
    // subvolume stage tests the disk again with exact sizes.
    const uint32_t neededKilobytes =
        uint32_t(a.width) * uint32_t(a.height) * uint32_t(a.depth) * 4u / 1000u;
    if (!cTempFileGenerator::Instance().IsInMemory() &&
        !ovdCheckDiskSpace(neededKilobytes, a.tempDirectory)) {
        cFailureReason::Record("the temporary directory's disk has less room than a float copy "
                               "of the input would need (" +
                               std::to_string(neededKilobytes) + " kB), or its space is unknown");
        return OVD_RESULT_CANNOT_CREATE_FILE;
    }
    if (ovdCheckStackFile(a.inputFile, a.width, a.height, a.depth, sizeof(Source)) != 0)
        return OVD_RESULT_CONVERSION_FAILED;
    state.stackPixelBytes = sizeof(Source);
    return OVD_RESULT_SUCCESS;
}

int32_t StartFlag(uint32_t start) {
    switch (start) {
    case OVD_START_INVERSE_FILTER: return DEC_FLAG_IGM_FILTERED_ORIGINAL;
    case OVD_START_FLAT: return DEC_FLAG_IGM_FLAT_SHEET;
    default: return DEC_FLAG_IGM_ORIGINAL_DATA;
    }
}

// The method's own keys. The inverse filter writes its single pass itself; the iterative
// methods take theirs from here, and save only at the end.
void FillMethodParameters(const ovdRunArguments& a, cDeconParameter& p) {
    if (a.method == OVD_METHOD_INVERSE_FILTER)
        return;
    const bool extrapolation = a.acceleration == OVD_ACCELERATION_EXTRAPOLATION;
    p.SetFlag(DEC_FPARAMS_DECON_METHOD,
              a.method == OVD_METHOD_GOLD ? DEC_FLAG_DM_GOLDS
              : extrapolation             ? DEC_FLAG_DM_EXTRAPOLATION_ACCEL
                                          : DEC_FLAG_DM_POWER_ACCEL);
    p.SetBool(DEC_BPARAMS_VECTOR_EXTRAPOLATION, extrapolation);
    p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, a.iterations);
    p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, a.iterations);
    p.SetReal(DEC_RPARAMS_GOODS_FACTOR, a.roughness);
    p.SetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD, StartFlag(a.start));
    p.SetReal(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS, a.goldSmoothing);
    p.SetInt(DEC_IPARAMS_GOLDS_SMOOTH_ITER, a.goldInterval);
    p.SetReal(DEC_RPARAMS_STRCH_FACTOR, 1.0f);
    p.SetInt(DEC_IPARAMS_MLEM2D_NONBLIND_39, a.objectUpdates);
    p.SetInt(DEC_IPARAMS_MLEM2D_BLIND_38, a.psfUpdates);
}

void FillParameters(const ovdRunArguments& a, const ovdRunState& state) {
    cDeconParameter& p = state.log->GetParameters();
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, a.inputFile);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, a.width);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, a.height);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, a.depth);
    p.SetReal(DEC_RPARAMS_X_SPACING, a.xSpacing);
    p.SetReal(DEC_RPARAMS_Y_SPACING, a.ySpacing);
    p.SetReal(DEC_RPARAMS_Z_SPACING, a.zSpacing);
    p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, a.outputFile);
    p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, a.numericalAperture);
    p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, a.refractiveIndex);
    p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, a.emissionWavelength);
    p.SetBool(DEC_BPARAMS_IS_PHASEOBJECT, a.phaseObject == 1);
    p.SetFlag(DEC_FPARAMS_MODALITY,
              a.modality == 5 ? DEC_FLAG_MOD_TL_BRIGHTFIELD : DEC_FLAG_MOD_WF_FLUORESCENCE);
    p.SetBool(DEC_BPARAMS_IS_TLB, p.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD);
    p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, a.sphericalAberration);
    p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, NoiseLevelFlag(a.noiseLevel));
    if (p.GetFlag(DEC_FPARAMS_NOISE_LEVEL) == DEC_FLAG_NOISE_LEVEL_OTHER)
        p.SetReal(DEC_RPARAMS_GOODS_FACTOR, a.noiseFactor);
    p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
    p.SetFlag(DEC_FPARAMS_SUBVOLUME_METHOD, DEC_FLAG_SVM_DYNAMIC);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XYGUARDBAND, a.xyGuardBand);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZGUARDBAND, a.zGuardBand);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, a.overlap);
    p.SetBool(DEC_BPARAMS_IS_2D, a.depth == 1);
    p.SetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE, true);
    p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, 1.0f);
    p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ALWAYS);
    p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_AUTO_CALCULATION);
    p.SetFlag(DEC_FPARAMS_PREVIEW_METHOD, DEC_FLAG_PM_3D_PREVIEW);
    p.SetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE, DEC_FLAG_IIS_VOLUME);
    p.SetInt(DEC_IPARAMS_BINFACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR, 1);
    p.SetBool(DEC_BPARAMS_SUBVOLUME_XYMONTAGE, a.xyMontage == 1);
    p.SetBool(DEC_BPARAMS_SUBVOLUME_ZMONTAGE, false);
    p.SetBool(DEC_BPARAMS_INTENSITY_CORRECTION, true);
    // The filter's background, regularisation and non-negativity describe the whole stack,
    // so that a result does not depend on how the memory budget cuts the stack.
    p.SetBool(DEC_BPARAMS_STACK_ESTIMATES, a.method == OVD_METHOD_INVERSE_FILTER);

    if (!a.psfFile.empty()) {
        p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_PSF_INPUT);
        p.SetBool(DEC_BPARAMS_PSF_EMPIRICAL, false);
        p.SetString(DEC_SPARAMS_INPUT_PSF_FILE, a.psfFile);
        p.SetInt(DEC_IPARAMS_PSF_WIDTH, a.psfWidth);
        p.SetInt(DEC_IPARAMS_PSF_HEIGHT, a.psfHeight);
        p.SetInt(DEC_IPARAMS_PSF_DEPTH, a.psfDepth);
        p.SetReal(DEC_RPARAMS_PSF_X_SPACING, a.psfXSpacing);
        p.SetReal(DEC_RPARAMS_PSF_Y_SPACING, a.psfYSpacing);
        p.SetReal(DEC_RPARAMS_PSF_Z_SPACING, a.psfZSpacing);
        p.SetBool(DEC_BPARAMS_PSF_AS_MEASURED, a.psfAsMeasured);
    } else {
        p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_THEORETICAL_EST);
        p.SetBool(DEC_BPARAMS_PSF_EMPIRICAL, true);
    }
    p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_CALCULATED);
    p.SetBool(DEC_BPARAMS_PSF_EXACT_MODEL, a.psfModel == OVD_PSF_MODEL_EXACT);
    p.SetReal(DEC_RPARAMS_SAMPLE_INDEX, a.sampleIndex);
    p.SetReal(DEC_RPARAMS_FOCUS_DEPTH, a.focusDepth);
    // High-NA vector terms start above 0.7 as a single-precision value; 0.7 itself is low.
    p.SetBool(DEC_BPARAMS_PSF_HIGH_NA, a.numericalAperture > 0.7f);
    if (!a.outputPsfFile.empty()) {
        p.SetBool(DEC_BPARAMS_SAVE_PSF, true);
        p.SetString(DEC_SPARAMS_OUTPUT_PSF_FILE, a.outputPsfFile);
    }
    FillMethodParameters(a, p);
}

void RecordQuietly(const std::exception& failure) noexcept {
    try {
        cFailureReason::Record(cFailureReason::Describe(failure));
    } catch (...) {
    }
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// A measured PSF is brought to the stack's spacing whole before it is cut to a subvolume's
// size. A spacing in the wrong unit (nanometres read as micrometres) asks for a grid a
// thousand times too long on every axis, which no memory holds: such a PSF is refused
// before anything is allocated, with the sizes that tell the host what went wrong.
uint16_t RefusePsfBeyondBudget(const ovdRunArguments& a) {
    const cImageDimensions psfSize{uint32_t(std::max<int16_t>(a.psfWidth, 0)),
                                   uint32_t(std::max<int16_t>(a.psfHeight, 0)),
                                   uint32_t(std::max<int16_t>(a.psfDepth, 0))};
    const bool thinTakesStackSpacing = a.psfWidth == 1 && a.method == OVD_METHOD_INVERSE_FILTER;
    const float psfSpacing[3] = {a.psfXSpacing, a.psfYSpacing,
                                 thinTakesStackSpacing ? a.zSpacing : a.psfZSpacing};
    const float stackSpacing[3] = {a.xSpacing, a.ySpacing, a.zSpacing};
    const double bytes =
        cLoadFilePsfFirstGuess::ResamplingBytes(psfSize, psfSpacing, stackSpacing, a.depth == 1);
    const int64_t budget = GetRunMemoryLimit();
    if (bytes <= double(budget))
        return OVD_RESULT_SUCCESS;
    char text[400];
    std::snprintf(text, sizeof text,
                  "the PSF of %d x %d x %d pixels at %g, %g, %g um, resampled to the stack's "
                  "spacing of %g, %g, %g um, needs %.3g MB, more than the run's memory budget "
                  "of %.3g MB; are the PSF's spacings in micrometres?",
                  a.psfWidth, a.psfHeight, a.psfDepth, double(psfSpacing[0]), double(psfSpacing[1]),
                  double(psfSpacing[2]), double(a.xSpacing), double(a.ySpacing), double(a.zSpacing),
                  bytes / 1048576.0, double(budget) / 1048576.0);
    cFailureReason::Record(text);
    return OVD_RESULT_RUN_FAILED;
}

// Values that no arithmetic turns into a finite restoration end the run before anything is
// written, with their cause: an aberration that is no number makes a PSF of no numbers, and
// so does a measured PSF with such values or with values whose sum the transforms cannot
// hold. The checks of the operations let all of them pass; the stack's own values are
// looked at by the pass that gathers its statistics.
uint16_t RefuseValuesNoRunCanUse(const ovdRunArguments& a) {
    if (!std::isfinite(a.sphericalAberration)) {
        cFailureReason::Record("the spherical aberration is not a finite number (" +
                               Number(a.sphericalAberration) + ")");
        return OVD_RESULT_RUN_FAILED;
    }
    if (a.psfFile.empty())
        return OVD_RESULT_SUCCESS;
    if (const uint16_t code = RefusePsfBeyondBudget(a))
        return code;
    ovdFloatFileValues values;
    const uint64_t count = uint64_t(std::max<int16_t>(a.psfWidth, 0)) *
                           uint64_t(std::max<int16_t>(a.psfHeight, 0)) *
                           uint64_t(std::max<int16_t>(a.psfDepth, 0));
    if (!ovdScanFloatFile(a.psfFile, count, values))
        return OVD_RESULT_SUCCESS; // the PSF's loader names a file it cannot read
    if (!values.finite) {
        cFailureReason::Record("the PSF file " + a.psfFile +
                               " holds values that are not finite numbers (NaN or infinity)");
        return OVD_RESULT_RUN_FAILED;
    }
    if (values.magnitudeSum > kLargestTransformSum) {
        cFailureReason::Record("the PSF file " + a.psfFile +
                               " holds values near the float limit: their magnitudes sum to " +
                               Number(values.magnitudeSum) + ", more than the transforms hold (" +
                               Number(kLargestTransformSum) + "); scale the PSF down");
        return OVD_RESULT_RUN_FAILED;
    }
    return OVD_RESULT_SUCCESS;
}

// What a run may keep in memory beyond its working images. `files`: a run of one subvolume
// keeps the padded subvolume and its results as memory files, when they fit into what the
// budget leaves beyond the working images; their cost in system calls, page cache and disk
// is then saved. A cut stays on disk: its files together are about
// the stack's size, which is why it was cut; files is then 0. `rest`: what is left beyond
// the files, for the PSF that the process keeps for its next run.
struct cSpareMemory {
    double files = 0.0;
    double rest = 0.0;
};

cSpareMemory SpareMemory(const ovdRunState& state) {
    cCountedPtr<cSubvoluming> cut = new cSubvoluming();
    cut->SetLog(state.log);
    cSubvoluming::cPlannedFiles planned;
    // A stack that can't be cut is refused, with its reason, by the cut itself later.
    if (!cut->PlanFiles(planned, false))
        return {};
    const double spare = double(GetSpareRunMemory(int64_t(planned.subvolumeBytes)));
    if (planned.subvolumes != 1)
        return {0.0, spare};
    // Each file ends in a part-filled chunk.
    const double fileCount = 1.0 + planned.states;
    const double files = planned.subvolumeBytes * (1.0 + planned.states) +
                         fileCount * double(Platform::cMemoryFile::kChunkBytes);
    if (files > spare)
        return {0.0, spare};
    return {files, spare - files};
}

} // namespace

uint16_t ovdSetUpInverseFilterRun(const ovdRunArguments& a, ovdRunState& state) {
    if (const uint16_t code = RefuseValuesNoRunCanUse(a))
        return code;
    state.log = new cDeconLog();
    cTempFileGenerator& generator = cTempFileGenerator::Instance();
    generator.SetDirectory(a.tempDirectory);
    cDeconParameter& p = state.log->GetParameters();
    p.SetString(DEC_SPARAMS_TEMP_DIRECTORY, a.tempDirectory);
    state.stackPixelBytes = sizeof(float);
    FillParameters(a, state);
    p.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, ovdSubvolumeMemorySize(a, p));
    const cSpareMemory spare = SpareMemory(state);
    generator.SetInMemory(spare.files > 0);
    // Chunks that earlier runs kept beyond what this one may hold go back to the system;
    // after a cut, all of them.
    Platform::cMemoryFile::KeepPooledAtMost(uint64_t(spare.files));
    // The rest keeps the last PSF; its transform stays in the transforms' own memory.
    cPsfCache::KeepAtMost(uint64_t(spare.rest));

    uint16_t result = OVD_RESULT_SUCCESS;
    switch (a.pixelType) {
    case OVD_ARG_PIXEL_FLOAT32: break; // the run reads the caller's file itself
    case OVD_ARG_PIXEL_UINT16: result = LookAtIntegerStack<uint16_t>(a, state); break;
    case OVD_ARG_PIXEL_UINT8: result = LookAtIntegerStack<uint8_t>(a, state); break;
    default: result = OVD_RESULT_CONVERSION_FAILED; break;
    }
    return result;
}

uint16_t ovdRunInverseFilter(const ovdRunArguments& arguments) {
    ovdRunState state;
    try {
        if (const uint16_t code = ovdSetUpInverseFilterRun(arguments, state))
            return code;
        return ovdRunInverseFilterStages(arguments, state);
    } catch (...) {
        // A failure or the host's cancel: the output is incomplete. The temporary files of
        // the run are of no further use, and a host that lives on should not find them
        // piling up in its directory. The exception's reason is all the host will learn of
        // the cause, so it is kept before anything else can fail.
        try {
            throw;
        } catch (const std::exception& failure) {
            RecordQuietly(failure);
        } catch (...) {
        }
        try {
            ovdDiscardRunFiles(state);
        } catch (...) {
        }
        return OVD_RESULT_RUN_FAILED;
    }
}

} // namespace Ovidane
