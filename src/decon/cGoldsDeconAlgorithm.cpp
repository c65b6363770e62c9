#include "decon/cGoldsDeconAlgorithm.h"

#include "decon/cFlatSheetPsfFirstGuess.h"
#include "decon/cGaussianNoiseSmoothing.h"
#include "decon/cIterativeStopCriterion.h"

namespace Ovidane {

cGoldsDeconAlgorithm::cGoldsDeconAlgorithm(cCountedPtr<cDeconLog> log)
    : cFrameworkDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        ReadGeometry();
        // The data are needed in every pass, so the object is an image of its own.
        MakeFramework(false);

        mOptimization = new cGoldsMethodOptimization();
        mObjectSmoothing = MakeObjectSmoothing(PlaneDistanceInPixels());
        const int32_t interval = p.GetInt(DEC_IPARAMS_GOLDS_SMOOTH_ITER);
        const float width = p.GetReal(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS);
        if (interval > 0 && width > 0.0f)
            mIterationSmoothing = new cGaussianNoiseSmoothing(
                1.0f, 1.0f, PlaneDistanceInPixels(), width, static_cast<uint32_t>(interval));

        // This method has no PSF derived from the data: that choice, like every other but a
        // file and the flat sheet, gives the theoretical PSF.
        switch (p.GetFlag(DEC_FPARAMS_PSF_GUESS_METHOD)) {
        case DEC_FLAG_PGM_PSF_INPUT:
            mPsfFirstGuess = MakeLoadFilePsfFirstGuess(false);
            break;
        case DEC_FLAG_PGM_FLAT_SHEET:
            mPsfFirstGuess = new cFlatSheetPsfFirstGuess();
            break;
        default:
            mPsfFirstGuess = MakeTheoreticalPsfFirstGuess(StretchFactor());
            break;
        }
        mObjectFirstGuess = MakeObjectFirstGuess(StretchFactor());
        MakePreviews(mPreview, mPsfPreview);

        CountPassesAsTheLogSays();
    });
    SetObjectName("cGoldsDeconAlgorithm");
}

cGoldsDeconAlgorithm::~cGoldsDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cGoldsDeconAlgorithm::SetUp() {
    Guard([&] {
        cIterativeDeconFramework& framework = LoadWithOperations(mOptimization);
        AddPsfPreparation(framework, 0.0f);
        framework.SetPreview(mPreview);
    });
}

void cGoldsDeconAlgorithm::Prepare() {
    Guard([&] { PrepareOperations(*mOptimization); });
}

void cGoldsDeconAlgorithm::Run() {
    Guard([&] { RunReleasingOneTimeOperations(); });
}

} // namespace Ovidane
