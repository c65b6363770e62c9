#include "decon/cInverseFilterDeconAlgorithm.h"

#include <vector>

#include "core/cStatusUpdateHandler.h"
#include "decon/c2DPSFPreview.h"
#include "decon/c2DPreview.h"
#include "decon/c2DPreviewWithFile.h"
#include "decon/c3DDvorakBandWidthConstraint.h"
#include "decon/c3DPreview.h"
#include "decon/c3DPreviewWithFile.h"
#include "decon/c3DPsfBandWidthConstraintFromImagingParameters.h"
#include "decon/c3DPsfHourglassSpaceConstraint.h"
#include "decon/cAverageMaskedBackgroundSubtractionConstraint.h"
#include "decon/cAxialSumNormalizationConstraint.h"
#include "decon/cImageNonNegativityLinearCompressionConstraint.h"
#include "decon/cImageNormalizationConstraint.h"
#include "decon/cIterativeCallbackStopCriterion.h"
#include "decon/cIterativeStopCriterion.h"
#include "decon/cLoadFilePsfFirstGuess.h"
#include "decon/cMinimumIntensityBackgroundSubtractionConstraint.h"
#include "decon/cRadialAverageConstraint.h"
#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"
#include "image/cMemoryManagerContainer.h"
#include "image/cMemoryRequest.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cInverseFilterDeconAlgorithm::cInverseFilterDeconAlgorithm(cCountedPtr<cDeconLog> log)
    : cDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        mSize = cImageDimensions{static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)),
                                 static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT)),
                                 static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH))};
        mSpacing[0] = p.GetReal(DEC_RPARAMS_X_SPACING);
        mSpacing[1] = p.GetReal(DEC_RPARAMS_Y_SPACING);
        mSpacing[2] = p.GetReal(DEC_RPARAMS_Z_SPACING);

        // The filter needs the original no more once it has its transform, so the result
        // may take its place: one volume of memory less.
        mIterativeFramework = new cIterativeDeconFramework(mLog, mSize);
        mIterativeFramework->SetObjectSharesOriginal(true);
        mFramework = mIterativeFramework;

        mInverseOptimization = new cInverseFilterOptimization();
        mInverseOptimization->SetSpacing(mSpacing[0], mSpacing[1], mSpacing[2]);
        mInverseOptimization->SetRegularizationFactor(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));
        mInverseOptimization->SetNoiseLevel(p.GetFlag(DEC_FPARAMS_NOISE_LEVEL));
        // The estimate of K looks at the interior planes only: the guard bands hold
        // interpolated data, not measured ones.
        const int32_t lastPlane =
            p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH) - p.GetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND) - 1;
        mInverseOptimization->SetZRange(
            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND)),
            static_cast<uint32_t>(lastPlane));
        mOptimization = mInverseOptimization;

        MakePsfFirstGuess();
        MakePreviews();

        // One pass, and the result saved at its end.
        p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 1);
        p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, 1);
        mStopCriterion = new cIterativeStopCriterion(mLog);
    });
    SetObjectName("cInverseFilterDeconAlgorithm");
}

cInverseFilterDeconAlgorithm::~cInverseFilterDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cInverseFilterDeconAlgorithm::MakePsfFirstGuess() {
    const cDeconParameter& p = mLog->GetParameters();
    if (p.GetFlag(DEC_FPARAMS_PSF_GUESS_METHOD) == DEC_FLAG_PGM_PSF_INPUT) {
        const cImageDimensions psfSize{static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_PSF_WIDTH)),
                                       static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_PSF_HEIGHT)),
                                       static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_PSF_DEPTH))};
        // A PSF file one pixel wide takes its plane distance from the stack.
        const float psfSpacingZ = psfSize.x == 1 ? p.GetReal(DEC_RPARAMS_Z_SPACING)
                                                 : p.GetReal(DEC_RPARAMS_PSF_Z_SPACING);
        mPsfFirstGuess =
            new cLoadFilePsfFirstGuess(mSize, mSpacing[0], mSpacing[1], mSpacing[2], psfSize,
                                       p.GetReal(DEC_RPARAMS_PSF_X_SPACING),
                                       p.GetReal(DEC_RPARAMS_PSF_Y_SPACING), psfSpacingZ);
    } else {
        mPsfFirstGuess = new cTheoreticalPsfFirstGuessWithSphericalAberration(
            mSpacing[0], mSpacing[1], mSpacing[2], mSize, p.GetReal(DEC_RPARAMS_NUMERICAL_APERTURE),
            p.GetReal(DEC_RPARAMS_REFRACTION_INDEX), p.GetReal(DEC_RPARAMS_EMISSION_WAVELENGTH),
            p.GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION), 1.0f, p.GetFlag(DEC_FPARAMS_MODALITY));
    }
}

void cInverseFilterDeconAlgorithm::SharePsfFirstGuess(cCountedPtr<cSharedPsfFirstGuess>& shared) {
    Guard([&] {
        if (shared.IsNull())
            shared = new cSharedPsfFirstGuess(mPsfFirstGuess);
        mPsfFirstGuess = shared;
    });
}

void cInverseFilterDeconAlgorithm::MakePreviews() {
    const cDeconParameter& p = mLog->GetParameters();
    switch (p.GetFlag(DEC_FPARAMS_PREVIEW_METHOD)) {
    case DEC_FLAG_PM_2D_PREVIEW:
        mPreview = new c2DPreview(mLog);
        break;
    case DEC_FLAG_PM_2D_PREVIEW_WITH_FILE:
        mPreview = new c2DPreviewWithFile(mLog);
        break;
    case DEC_FLAG_PM_3D_PREVIEW:
        mPreview = new c3DPreview(mLog);
        break;
    case DEC_FLAG_PM_3D_PREVIEW_WITH_FILE:
        mPreview = new c3DPreviewWithFile(mLog);
        break;
    default:
        break; // no preview; the running-maximum kind belongs to the 2D methods
    }
    if (p.GetFlag(DEC_FPARAMS_PSF_PREVIEW_METHOD) == DEC_FLAG_PPM_2D_PSF_PREVIEW)
        mPsfPreview = new c2DPSFPreview(mLog);
}

void cInverseFilterDeconAlgorithm::SetUp() {
    Guard([&] {
        const cDeconParameter& p = mLog->GetParameters();
        cIterativeDeconFramework& framework = *mIterativeFramework;
        // The original image is read before any constraint touches it, so the sum taken
        // below is the sum of the raw data.
        framework.Load();
        framework.SetPsfFirstGuess(mPsfFirstGuess);
        framework.SetOptimization(mOptimization);
        framework.SetStopCriterion(mStopCriterion);

        // Transmitted light carries its information in the background itself.
        if (!p.GetBool(DEC_BPARAMS_IS_TLB)) {
            const int32_t method = p.GetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD);
            if (method == 0 || method == DEC_FLAG_DCM_MANUAL_INPUT)
                framework.AddImagePreprocessing(new cSpecifiedValueBackgroundSubtractionConstraint(
                    p.GetReal(DEC_RPARAMS_DARKCURRENT)));
            else
                framework.AddImagePreprocessing(
                    new cMinimumIntensityBackgroundSubtractionConstraint());
        }

        if (p.GetBool(DEC_BPARAMS_PREPROCESS_PSF) &&
            p.GetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE) == DEC_FLAG_PSFSRC_MEASURED)
            AddMeasuredPsfPreprocessing();
        // Always last: the filter expects a PSF of sum 1, so that the zero frequency keeps
        // the image's brightness.
        framework.AddPsfPreprocessing(new cImageNormalizationConstraint(1.0f));

        if (!p.GetBool(DEC_BPARAMS_IS_PHASEOBJECT)) {
            cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
            const float sum = static_cast<float>(math->SumImage(framework.GetOriginalImage()));
            framework.AddImageConstraint(new cImageNonNegativityLinearCompressionConstraint(sum));
        }

        framework.SetPreview(mPreview);
    });
}

// A measured PSF brings the noise and the background of its own recording: cut what lies
// beyond the optics' band limit, make it rotationally symmetric, subtract the background
// found outside the hourglass that holds the PSF's light, clear everything outside that
// hourglass, and give every plane the same sum.
void cInverseFilterDeconAlgorithm::AddMeasuredPsfPreprocessing() {
    const cDeconParameter& p = mLog->GetParameters();
    cIterativeDeconFramework& framework = *mIterativeFramework;
    const float na = p.GetReal(DEC_RPARAMS_NUMERICAL_APERTURE);
    const float n = p.GetReal(DEC_RPARAMS_REFRACTION_INDEX);
    const float lambda = p.GetReal(DEC_RPARAMS_EMISSION_WAVELENGTH);
    const bool confocal = p.GetBool(DEC_BPARAMS_IS_CONFOCAL);
    const bool observe = p.GetBool(DEC_BPARAMS_BANDLIMIT_OBSERVE);
    if (p.GetBool(DEC_BPARAMS_PSF_HIGH_NA))
        framework.AddPsfPreprocessing(
            new c3DDvorakBandWidthConstraint(mSpacing[0], mSpacing[1], mSpacing[2], na, n, lambda,
                                             mSize.x, mSize.y, mSize.z, confocal, observe));
    else
        framework.AddPsfPreprocessing(new c3DPsfBandWidthConstraintFromImagingParameters(
            mSpacing[0], mSpacing[1], mSpacing[2], na, n, lambda, mSize.x, mSize.y, mSize.z,
            confocal, observe));
    framework.AddPsfPreprocessing(new cRadialAverageConstraint());
    cCountedPtr<cAverageMaskedBackgroundSubtractionConstraint> background(
        new cAverageMaskedBackgroundSubtractionConstraint());
    framework.AddPsfPreprocessing(background);
    cCountedPtr<c3DPsfHourglassSpaceConstraint> hourglass(new c3DPsfHourglassSpaceConstraint(
        mSpacing[0], mSpacing[1], mSpacing[2], na, n, lambda, p.GetReal(DEC_RPARAMS_MINIMUM_RADIUS),
        mSize.x, mSize.y, mSize.z, confocal, false));
    framework.AddPsfPreprocessing(hourglass);
    background->SetMask(hourglass->GetMask());
    framework.AddPsfPreprocessing(new cAxialSumNormalizationConstraint());
}

void cInverseFilterDeconAlgorithm::SetStatusCallback(ovdStatusCallback callback, void* userData) {
    Guard([&] {
        mIterativeFramework->SetStatusUpdateHandler(new cStatusUpdateHandler(callback, userData));
    });
}

void cInverseFilterDeconAlgorithm::SetStatusCallback(ovdStatusCallback callback) {
    Guard([&] { mIterativeFramework->SetStatusUpdateHandler(new cStatusUpdateHandler(callback)); });
}

void cInverseFilterDeconAlgorithm::SetSubvolumeProgress(int16_t index, int16_t count) {
    Guard([&] { mIterativeFramework->SetSubvolumeProgress(index, count); });
}

void cInverseFilterDeconAlgorithm::UseCallbackStopCriterion(ovdStatusCallback callback) {
    Guard([&] {
        mStopCriterion = new cIterativeCallbackStopCriterion(mLog, callback);
        mIterativeFramework->SetStopCriterion(mStopCriterion);
    });
}

void cInverseFilterDeconAlgorithm::Initialize() {
    Guard([&] {
        SetMemoryManagerContainer(&cMemoryManagerContainer::Instance());
        cFFTManager& transforms = cFFTManager::Instance();
        transforms.AddInstance(mSize, 1, 3);
        // The transforms ask for no memory beyond their own work images; the list is taken
        // for the order of the protocol and dropped.
        std::vector<cMemoryRequest> requests;
        transforms.GetMemoryRequests(requests);
        transforms.InitializePlans();
        mInitialized = true;
    });
}

void cInverseFilterDeconAlgorithm::Prepare() {
    Guard([&] {
        mPsfFirstGuess->SetFileName(mLog->GetParameters().GetString(DEC_SPARAMS_INPUT_PSF_FILE));
        mOptimization->Initialize();
        mStopCriterion->Initialize();
    });
}

void cInverseFilterDeconAlgorithm::Run() {
    Guard([&] {
        mIterativeFramework->Prepare();
        mIterativeFramework->Iterate();
    });
}

void cInverseFilterDeconAlgorithm::UpdatePreview(cFloatImagePtr& preview) {
    Guard([&] { mIterativeFramework->UpdatePreview(preview); });
}

void cInverseFilterDeconAlgorithm::UpdatePsfPreview(cFloatImagePtr& preview) {
    Guard([&] { mIterativeFramework->UpdatePsfPreview(preview); });
}

} // namespace Ovidane
