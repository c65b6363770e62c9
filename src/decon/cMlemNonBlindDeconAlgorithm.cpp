#include "decon/cMlemNonBlindDeconAlgorithm.h"

#include "decon/cDerivedPsfFirstGuess.h"
#include "decon/cFlatSheetPsfFirstGuess.h"
#include "decon/cGoodsRoughnessNoiseSmoothing.h"
#include "decon/cIterativeStopCriterion.h"
#include "decon/cLineSearchAcceleration.h"
#include "decon/cVectorExtrapolationAcceleration.h"

namespace Ovidane {
namespace {

// Modality 14 has no name among the modality flags. This restoration treats it as a
// fluorescence modality like widefield (the PSF model and the previews see nothing special
// in it) whose measured PSFs are cleaned with the wide hourglass waist of 10: the radius is
// written to the log at set-up, so that the log of such a run shows the radius the cleaning
// works with even when no cleaning is asked for.
constexpr int32_t kModalityWideHourglass = 14;

// The waist radius of the hourglass that cleans a measured PSF for ML-EM, wide enough that
// the cleaning never cuts into the PSF's own light near focus: the passes would otherwise fit
// the data with a PSF that lacks part of it.
constexpr float kHourglassMinimumRadius = 10.0f;

uint32_t SubPixelFactor(int32_t value) {
    // A factor below 1 has no meaning; the measured grid is then the restored one.
    return value > 1 ? static_cast<uint32_t>(value) : 1u;
}

} // namespace

cMlemNonBlindDeconAlgorithm::cMlemNonBlindDeconAlgorithm(cCountedPtr<cDeconLog> log)
    : cFrameworkDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        ReadGeometry();
        // The data are needed in every pass, so the object is an image of its own.
        MakeFramework(false);

        if (p.GetBool(DEC_BPARAMS_VECTOR_EXTRAPOLATION)) {
            mAcceleration = new cVectorExtrapolationAcceleration();
        } else {
            cCountedPtr<cLineSearchAcceleration> search(new cLineSearchAcceleration());
            search->SetGuardBands(
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND)),
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND)),
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND)),
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND)),
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND)),
                static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND)));
            mAcceleration = search;
        }

        mOptimization = new cMlemNonBlindMethodOptimization();
        mOptimization->SetAcceleration(mAcceleration);
        mOptimization->SetSubPixelFactors(SubPixelFactor(p.GetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR)),
                                          SubPixelFactor(p.GetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR)));
        mOptimization->SetDimensions(mSize);

        mObjectSmoothing = MakeObjectSmoothing();
        mIterationSmoothing =
            new cGoodsRoughnessNoiseSmoothing(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));

        switch (p.GetFlag(DEC_FPARAMS_PSF_GUESS_METHOD)) {
        case DEC_FLAG_PGM_AUTOCORRELATION:
            mPsfFirstGuess = new cDerivedPsfFirstGuess();
            break;
        case DEC_FLAG_PGM_PSF_INPUT:
            mPsfFirstGuess = MakeLoadFilePsfFirstGuess(false);
            break;
        case DEC_FLAG_PGM_FLAT_SHEET:
            mPsfFirstGuess = new cFlatSheetPsfFirstGuess();
            break;
        default:
            mPsfFirstGuess = MakeTheoreticalPsfFirstGuess(1.0f);
            break;
        }
        mObjectFirstGuess = MakeObjectFirstGuess(StretchFactor());
        MakePreviews(mPreview, mPsfPreview);

        CountPassesAsTheLogSays();
    });
    SetObjectName("cMlemNonBlindDeconAlgorithm");
}

cMlemNonBlindDeconAlgorithm::~cMlemNonBlindDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cMlemNonBlindDeconAlgorithm::SetUp() {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        cIterativeDeconFramework& framework = *mIterativeFramework;
        framework.Load();
        framework.SetPsfFirstGuess(mPsfFirstGuess);
        framework.SetObjectSmoothing(mObjectSmoothing);
        framework.SetIterationSmoothing(mIterationSmoothing);
        framework.SetOptimization(mOptimization);
        framework.SetStopCriterion(mStopCriterion);
        framework.SetObjectFirstGuess(mObjectFirstGuess);

        if (p.GetFlag(DEC_FPARAMS_MODALITY) == kModalityWideHourglass)
            p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, kHourglassMinimumRadius);
        AddPsfPreparation(framework, kHourglassMinimumRadius);

        framework.SetPreview(mPreview);
        framework.SetPsfPreview(mPsfPreview);
    });
}

void cMlemNonBlindDeconAlgorithm::UseCallbackStopCriterion(ovdStatusCallback callback) {
    Guard([&] { mStopCriterion->SetCallback(callback); });
}

void cMlemNonBlindDeconAlgorithm::Prepare() {
    Guard([&] { PrepareOperations(*mOptimization); });
}

void cMlemNonBlindDeconAlgorithm::Run() {
    Guard([&] { RunReleasingOneTimeOperations(); });
}

} // namespace Ovidane
