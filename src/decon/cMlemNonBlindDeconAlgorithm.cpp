#include "decon/cMlemNonBlindDeconAlgorithm.h"

#include "decon/cGoodsRoughnessNoiseSmoothing.h"

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

} // namespace

cMlemNonBlindDeconAlgorithm::cMlemNonBlindDeconAlgorithm(cCountedPtr<cDeconLog> log)
    : cFrameworkDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        ReadGeometry();
        // The data are needed in every pass, so the object is an image of its own.
        MakeFramework(false);

        mAcceleration = MakeMlemAcceleration();

        mOptimization = new cMlemNonBlindMethodOptimization();
        mOptimization->SetAcceleration(mAcceleration);
        SizeForTheLog(*mOptimization);

        mObjectSmoothing = MakeObjectSmoothing(PlaneDistanceInPixels());
        mIterationSmoothing =
            new cGoodsRoughnessNoiseSmoothing(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));

        mPsfFirstGuess = MakeMlemPsfFirstGuess(1.0f);
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
        cIterativeDeconFramework& framework = LoadWithOperations(mOptimization);

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
