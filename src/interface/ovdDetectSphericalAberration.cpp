#include "interface/ovdDetectSphericalAberration.h"

#include <cmath>
#include <cstdio>

#include "core/DeconKeys.h"
#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cException.h"
#include "core/cFailureReason.h"
#include "core/cMessageSink.h"
#include "image/cMemoryManagerContainer.h"
#include "interface/cSADetectorWithBrent.h"
#include "interface/ovdRunSetup.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "math/cFFTManager.h"
#include "platform/MemoryFiles.h"

namespace Ovidane {
namespace {

// The search restores the stack many times with the theoretical PSF and a K estimated
// from the data; everything a restoration run would take from the host (PSF files, noise
// class, modality, phase object) stays at its neutral value.
cCountedPtr<cDeconLog> MakeSearchLog(const ovdDetectArguments& a) {
    cCountedPtr<cDeconLog> log(new cDeconLog());
    cDeconParameter& p = log->GetParameters();
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, a.width);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, a.height);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, a.depth);
    p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, a.numericalAperture);
    p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, a.refractiveIndex);
    p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, a.emissionWavelength);
    p.SetReal(DEC_RPARAMS_X_SPACING, a.xSpacing);
    p.SetReal(DEC_RPARAMS_Y_SPACING, a.ySpacing);
    p.SetReal(DEC_RPARAMS_Z_SPACING, a.zSpacing);
    // The binned search: the cut bins the stack before it cuts it (cSubvoluming), and the
    // search restores and scores the binned subvolumes.
    p.SetInt(DEC_IPARAMS_BINFACTOR, static_cast<int32_t>(a.binFactor));
    p.SetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR, 1);
    p.SetFlag(DEC_FPARAMS_SUBVOLUME_METHOD, DEC_FLAG_SVM_DYNAMIC);
    p.SetBool(DEC_BPARAMS_IS_2D, a.depth == 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XYGUARDBAND, a.xyGuardBand);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZGUARDBAND, a.zGuardBand);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, a.overlap);
    p.SetBool(DEC_BPARAMS_SUBVOLUME_XYMONTAGE, a.xyMontage != 0);
    p.SetBool(DEC_BPARAMS_SUBVOLUME_ZMONTAGE, false);
    p.SetBool(DEC_BPARAMS_INTENSITY_CORRECTION, true);
    p.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, GetSubvolumeMemoryBudget(1));
    p.SetBool(DEC_BPARAMS_IS_CONFOCAL, false);
    // A binned pixel sums the background of b x b pixels but less than b x b times the peak
    // of a blurred point, so the background left in the restorations (the full search
    // subtracts none) outweighs the contrast that the figure of merit scores, and the
    // minimum moves by whole units of aberration. The binned search takes the stack's
    // smallest value off every subvolume first (on a bead calibration stack its estimates
    // then lie within 0.1 to 0.4 of the full search's instead of up to 2 from them).
    if (a.binFactor > 1)
        p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_AUTO_CALCULATION);
    p.SetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE, DEC_FLAG_IIS_VOLUME);
    p.SetBool(DEC_BPARAMS_PSF_EXACT_MODEL, a.psfModel.nModel == OVD_PSF_MODEL_EXACT);
    p.SetReal(DEC_RPARAMS_SAMPLE_INDEX, a.psfModel.fSampleIndex);
    p.SetReal(DEC_RPARAMS_FOCUS_DEPTH, a.psfModel.fDepth);
    return log;
}

// Brings the input to a float file: the caller's own file for float pixels, a converted
// copy otherwise. False when the copy could not be made; no half-written copy remains.
bool BringInputToFloat(const ovdDetectArguments& a, cDeconParameter& p) {
    if (a.pixelType == OVD_ARG_PIXEL_FLOAT32) {
        p.SetString(DEC_SPARAMS_ORIGINAL_FILE, a.inputFile);
        return true;
    }
    const int code = a.pixelType == OVD_ARG_PIXEL_UINT16
                         ? ovdConvertToFloatFile<uint16_t>(a.inputFile, a.convertedFile, a.width,
                                                           a.height, a.depth)
                         : ovdConvertToFloatFile<uint8_t>(a.inputFile, a.convertedFile, a.width,
                                                          a.height, a.depth);
    if (code != 0) {
        Platform::RemoveFile(a.convertedFile);
        return false;
    }
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, a.convertedFile);
    return true;
}

} // namespace

uint16_t ovdDetectSphericalAberration(const ovdDetectArguments& a, float* result) {
    // The converted copy serves this search only: it goes when the search ends, however it
    // ends, rather than waiting in the host's directory for the library to be unloaded.
    struct RemoveConvertedCopy {
        const std::string& name;
        ~RemoveConvertedCopy() {
            if (!name.empty())
                Platform::RemoveFile(name);
        }
    } removeConvertedCopy{a.convertedFile};

    // Limits that are no numbers would have the search restore with PSFs of no numbers and
    // compare their figures; the operation's own checks let them pass.
    if (!std::isfinite(a.lowerLimit) || !std::isfinite(a.upperLimit)) {
        cFailureReason::Record("the search limits of the spherical aberration are not finite "
                               "numbers");
        *result = 0.0f; // as after any search that does not finish
        return OVD_RESULT_RUN_FAILED;
    }
    cCountedPtr<cDeconLog> log = MakeSearchLog(a);
    if (a.binFactor > 1)
        cMessageSink::Stream() << "Binned aberration search: x and y binned by " << a.binFactor
                               << '\n'
                               << std::flush;
    cDeconParameter& p = log->GetParameters();
    if (!BringInputToFloat(a, p))
        return OVD_RESULT_CONVERSION_FAILED;
    p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
    p.SetString(DEC_SPARAMS_TEMP_DIRECTORY, a.tempDirectory);

    // From here on the host gets 0 unless a search finishes: also when a failure leaves
    // this function as an exception.
    *result = 0.0f;
    uint16_t code = 0;
    {
        cCountedPtr<cSADetectorWithBrent> detector(new cSADetectorWithBrent(log));
        detector->SetStatusCallback(a.callback, a.userData);
        code = detector->Detect(a.lowerLimit, a.upperLimit);
        // A search that ended early leaves the estimate at 0; the code tells it apart
        // from a found value of 0.
        *result = static_cast<float>(detector->GetResult());
    }

    cFFTManager::Instance().ReleaseThreadInstances();
    cMemoryManagerContainer::Instance().ReportOwners();
    cMemoryManagerContainer::Instance().ReleaseThreadMemory();

    // A cancel is told to the host as every ended run is; the cut's refusals are already
    // the operation's own codes.
    if (code == OVD_ERR_CANCEL)
        return OVD_RESULT_RUN_FAILED;
    return code;
}

} // namespace Ovidane
