#include "decon/cDeconAlgorithm.h"

#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include "decon/c2DPSFPreview.h"
#include "decon/c2DPSFPreviewWithFile.h"
#include "decon/c2DPreview.h"
#include "decon/c2DPreviewWithFile.h"
#include "decon/c2DPreviewWithMaxProjectionFile.h"
#include "decon/c3DDvorakBandWidthConstraint.h"
#include "decon/c3DPreview.h"
#include "decon/c3DPreviewWithFile.h"
#include "decon/c3DPsfBandWidthConstraintFromImagingParameters.h"
#include "decon/c3DPsfHourglassSpaceConstraint.h"
#include "decon/cAverageMaskedBackgroundSubtractionConstraint.h"
#include "decon/cAxialSumNormalizationConstraint.h"
#include "decon/cCentredFilePsfFirstGuess.h"
#include "decon/cDerivedPsfFirstGuess.h"
#include "decon/cExactPsfFirstGuess.h"
#include "decon/cFlatSheetImageObjectFirstGuess.h"
#include "decon/cGaussianNoiseSmoothing.h"
#include "decon/cImageNormalizationConstraint.h"
#include "decon/cInverseFilteringObjectFirstGuess.h"
#include "decon/cIterativeDeconFramework.h"
#include "decon/cLoadFileObjectFirstGuess.h"
#include "decon/cLoadFilePsfFirstGuess.h"
#include "decon/cOriginalImageObjectFirstGuess.h"
#include "decon/cRadialAverageConstraint.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"
#include "image/cMemoryRequest.h"
#include "math/cFFTManager.h"
#include "platform/MemoryFiles.h"

namespace Ovidane {

cDeconAlgorithm::cDeconAlgorithm(cCountedPtr<cDeconLog> log) : mLog(std::move(log)) {}

cDeconAlgorithm::~cDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cDeconAlgorithm::DeleteOriginalFileIfOwned() {
    if (mOriginalFileHandled || mLog.IsNull())
        return;
    mOriginalFileHandled = true;
    const cDeconParameter& p = mLog->GetParameters();
    // The file was made for this run alone (a converted stack or a subvolume); once the
    // algorithm goes nobody reads it again. A file that is gone already is no failure.
    if (p.GetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE)) {
        const std::string& name = p.GetString(DEC_SPARAMS_ORIGINAL_FILE);
        if (!name.empty())
            (void)Platform::RemoveFile(name);
    }
}

cFloatImagePtr cDeconAlgorithm::GetResultImage() const {
    if (mFramework.IsNull())
        return cFloatImagePtr();
    return mFramework->GetObjectImage();
}

void cDeconAlgorithm::ReadGeometry() {
    const cDeconParameter& p = mLog->GetParameters();
    mSize = cImageDimensions{static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)),
                             static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT)),
                             static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH))};
    mSpacing[0] = p.GetReal(DEC_RPARAMS_X_SPACING);
    mSpacing[1] = p.GetReal(DEC_RPARAMS_Y_SPACING);
    mSpacing[2] = p.GetReal(DEC_RPARAMS_Z_SPACING);
}

cPsfFirstGuessPtr cDeconAlgorithm::MakeTheoreticalPsfFirstGuess(float stretch) const {
    const cDeconParameter& p = mLog->GetParameters();
    if (p.GetBool(DEC_BPARAMS_PSF_EXACT_MODEL)) {
        cExactPsfOptics optics;
        optics.numericalAperture = p.GetReal(DEC_RPARAMS_NUMERICAL_APERTURE);
        optics.immersionIndex = p.GetReal(DEC_RPARAMS_REFRACTION_INDEX);
        const float sample = p.GetReal(DEC_RPARAMS_SAMPLE_INDEX);
        optics.sampleIndex = sample > 0.0f ? sample : optics.immersionIndex;
        optics.wavelength = p.GetReal(DEC_RPARAMS_EMISSION_WAVELENGTH);
        optics.depth = p.GetReal(DEC_RPARAMS_FOCUS_DEPTH);
        optics.sphericalAberration = p.GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION);
        return new cExactPsfFirstGuess(mSpacing, mSize, optics, stretch);
    }
    return new cTheoreticalPsfFirstGuessWithSphericalAberration(
        mSpacing[0], mSpacing[1], mSpacing[2], mSize, p.GetReal(DEC_RPARAMS_NUMERICAL_APERTURE),
        p.GetReal(DEC_RPARAMS_REFRACTION_INDEX), p.GetReal(DEC_RPARAMS_EMISSION_WAVELENGTH),
        p.GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION), stretch, p.GetFlag(DEC_FPARAMS_MODALITY));
}

float cDeconAlgorithm::StretchFactor() const {
    const float stretch = mLog->GetParameters().GetReal(DEC_RPARAMS_STRCH_FACTOR);
    return stretch > 0.0f ? stretch : 1.0f;
}

cPsfFirstGuessPtr cDeconAlgorithm::MakeLoadFilePsfFirstGuess(bool thinPsfTakesStackSpacing) const {
    const cDeconParameter& p = mLog->GetParameters();
    const cImageDimensions psfSize{static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_PSF_WIDTH)),
                                   static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_PSF_HEIGHT)),
                                   static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_PSF_DEPTH))};
    const float psfSpacingZ = thinPsfTakesStackSpacing && psfSize.x == 1
                                  ? p.GetReal(DEC_RPARAMS_Z_SPACING)
                                  : p.GetReal(DEC_RPARAMS_PSF_Z_SPACING);
    const float psfSpacingX = p.GetReal(DEC_RPARAMS_PSF_X_SPACING);
    const float psfSpacingY = p.GetReal(DEC_RPARAMS_PSF_Y_SPACING);
    if (p.GetBool(DEC_BPARAMS_PSF_AS_MEASURED))
        return new cCentredFilePsfFirstGuess(mSize, mSpacing[0], mSpacing[1], mSpacing[2], psfSize,
                                             psfSpacingX, psfSpacingY, psfSpacingZ);
    return new cLoadFilePsfFirstGuess(mSize, mSpacing[0], mSpacing[1], mSpacing[2], psfSize,
                                      psfSpacingX, psfSpacingY, psfSpacingZ);
}

void cDeconAlgorithm::MakePreviews(cPreviewPtr& preview, cPreviewPtr& psfPreview,
                                   bool planeKinds, bool blindKinds) const {
    const cDeconParameter& p = mLog->GetParameters();
    switch (p.GetFlag(DEC_FPARAMS_PREVIEW_METHOD)) {
    case DEC_FLAG_PM_2D_PREVIEW:
        preview = new c2DPreview(mLog);
        break;
    case DEC_FLAG_PM_2D_PREVIEW_WITH_FILE:
        preview = new c2DPreviewWithFile(mLog);
        break;
    case DEC_FLAG_PM_3D_PREVIEW:
        preview = new c3DPreview(mLog);
        break;
    case DEC_FLAG_PM_3D_PREVIEW_WITH_FILE:
        preview = new c3DPreviewWithFile(mLog);
        break;
    case DEC_FLAG_PM_2D_PREVIEW_WITH_MAX_PROJECTION_FILE:
        if (planeKinds)
            preview = new c2DPreviewWithMaxProjectionFile(mLog);
        break;
    default:
        break; // no preview
    }
    switch (p.GetFlag(DEC_FPARAMS_PSF_PREVIEW_METHOD)) {
    case DEC_FLAG_PPM_2D_PSF_PREVIEW:
        psfPreview = new c2DPSFPreview(mLog);
        break;
    case DEC_FLAG_PPM_2D_PSF_PREVIEW_WITH_FILE:
        if (blindKinds)
            psfPreview = new c2DPSFPreviewWithFile(mLog);
        break;
    default:
        break;
    }
}

cObjectFirstGuessPtr cDeconAlgorithm::MakeObjectFirstGuess(std::optional<float> ownPsfStretch) {
    const cDeconParameter& p = mLog->GetParameters();
    switch (p.GetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD)) {
    case DEC_FLAG_IGM_FILTERED_ORIGINAL: {
        cCountedPtr<cInverseFilteringObjectFirstGuess> guess(
            new cInverseFilteringObjectFirstGuess());
        guess->SetAlgorithm(this);
        if (ownPsfStretch && p.GetFlag(DEC_FPARAMS_PSF_GUESS_METHOD) == DEC_FLAG_PGM_FLAT_SHEET)
            guess->SetPsfFirstGuess(MakeTheoreticalPsfFirstGuess(*ownPsfStretch));
        return guess;
    }
    case DEC_FLAG_IGM_FLAT_SHEET:
        return new cFlatSheetImageObjectFirstGuess();
    case DEC_FLAG_IGM_OBJECT_INPUT:
        return new cLoadFileObjectFirstGuess(p.GetString(DEC_SPARAMS_INPUT_OBJECT_FILE));
    default:
        return new cOriginalImageObjectFirstGuess();
    }
}

cNoiseSmoothingPtr cDeconAlgorithm::MakeObjectSmoothing(float planeDistance) const {
    const cDeconParameter& p = mLog->GetParameters();
    if (p.GetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD) != DEC_FLAG_IGM_ORIGINAL_DATA)
        return cNoiseSmoothingPtr();
    // Raw data as the start carry their noise into the first pass; a strong regularisation
    // asks for it to be blurred away first. Widths up to a pixel would change nothing worth
    // a transform.
    const float width = std::sqrt(p.GetReal(DEC_RPARAMS_GOODS_FACTOR) / 10.0f);
    if (!(width > 1.0f))
        return cNoiseSmoothingPtr();
    return new cGaussianNoiseSmoothing(1.0f, 1.0f, planeDistance, width, 1);
}

// A measured PSF brings the noise and the background of its own recording: cut what lies
// beyond the optics' band limit, make it rotationally symmetric, subtract the background
// found outside the hourglass that holds the PSF's light, clear everything outside that
// hourglass, and give every plane the same sum.
void cDeconAlgorithm::AddPsfPreparation(cIterativeDeconFramework& framework,
                                        float hourglassMinimumRadius) {
    cDeconParameter& p = mLog->GetParameters();
    if (p.GetBool(DEC_BPARAMS_PREPROCESS_PSF) &&
        p.GetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE) == DEC_FLAG_PSFSRC_MEASURED) {
        const float na = p.GetReal(DEC_RPARAMS_NUMERICAL_APERTURE);
        const float n = p.GetReal(DEC_RPARAMS_REFRACTION_INDEX);
        const float lambda = p.GetReal(DEC_RPARAMS_EMISSION_WAVELENGTH);
        const bool confocal = p.GetBool(DEC_BPARAMS_IS_CONFOCAL);
        const bool observe = p.GetBool(DEC_BPARAMS_BANDLIMIT_OBSERVE);
        if (p.GetBool(DEC_BPARAMS_PSF_HIGH_NA))
            framework.AddPsfPreprocessing(new c3DDvorakBandWidthConstraint(
                mSpacing[0], mSpacing[1], mSpacing[2], na, n, lambda, mSize.x, mSize.y, mSize.z,
                confocal, observe));
        else
            framework.AddPsfPreprocessing(new c3DPsfBandWidthConstraintFromImagingParameters(
                mSpacing[0], mSpacing[1], mSpacing[2], na, n, lambda, mSize.x, mSize.y, mSize.z,
                confocal, observe));
        framework.AddPsfPreprocessing(new cRadialAverageConstraint());
        cCountedPtr<cAverageMaskedBackgroundSubtractionConstraint> background(
            new cAverageMaskedBackgroundSubtractionConstraint());
        framework.AddPsfPreprocessing(background);
        if (hourglassMinimumRadius > 0.0f)
            p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, hourglassMinimumRadius);
        cCountedPtr<c3DPsfHourglassSpaceConstraint> hourglass(new c3DPsfHourglassSpaceConstraint(
            mSpacing[0], mSpacing[1], mSpacing[2], na, n, lambda,
            p.GetReal(DEC_RPARAMS_MINIMUM_RADIUS), mSize.x, mSize.y, mSize.z, confocal, false));
        framework.AddPsfPreprocessing(hourglass);
        background->SetMask(hourglass->GetMask());
        framework.AddPsfPreprocessing(new cAxialSumNormalizationConstraint());
    }
    // Always last: every method expects a PSF of sum 1, so that a blur keeps the image's
    // brightness.
    framework.AddPsfPreprocessing(new cImageNormalizationConstraint(1.0f));
}

void cDeconAlgorithm::InitializeTransforms() const {
    cFFTManager& transforms = cFFTManager::Instance();
    transforms.AddInstance(mSize, 1, 3);
    // The transforms ask for no memory beyond their own work images; the list is taken for
    // the order of the protocol and dropped.
    std::vector<cMemoryRequest> requests;
    transforms.GetMemoryRequests(requests);
    transforms.InitializePlans();
}

void cDeconAlgorithm::JoinSharedPsfFirstGuess(cPsfFirstGuessPtr& own,
                                              cCountedPtr<cSharedPsfFirstGuess>& shared) const {
    // A PSF derived from the stack itself differs from subvolume to subvolume; sharing it
    // would restore every subvolume with the first one's PSF.
    if (dynamic_cast<cDerivedPsfFirstGuess*>(own.Get()) != nullptr)
        return;
    if (shared.IsNull())
        shared = new cSharedPsfFirstGuess(own);
    own = shared;
}

} // namespace Ovidane
