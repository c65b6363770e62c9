#include "decon/cMlem2DNonBlindDeconAlgorithm.h"

#include "decon/cGoodsRoughnessNoiseSmoothing.h"
#include "decon/cImageNormalizationConstraint.h"

namespace Ovidane {

cMlem2DNonBlindDeconAlgorithm::cMlem2DNonBlindDeconAlgorithm(cCountedPtr<cDeconLog> log)
    : cFrameworkDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        ReadGeometry();
        MakeFramework(false);

        mOptimization = new cMlem2DNonBlindMethodOptimization(
            static_cast<uint32_t>(std::max(p.GetInt(DEC_IPARAMS_MLEM2D_NONBLIND_39), 0)));
        mOptimization->SetAcceleration(MakeMlemAcceleration());
        SizeForTheLog(*mOptimization);

        // A plane has no neighbours in depth: the start's blur is lateral.
        mObjectSmoothing = MakeObjectSmoothing(1.0f);
        mIterationSmoothing =
            new cGoodsRoughnessNoiseSmoothing(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));
        mPsfFirstGuess = MakeMlemPsfFirstGuess(1.0f);
        mObjectFirstGuess = MakeObjectFirstGuess(std::nullopt);
        MakePreviews(mPreview, mPsfPreview, true);
        CountPassesAsTheLogSays();
    });
    SetObjectName("cMlem2DNonBlindDeconAlgorithm");
}

cMlem2DNonBlindDeconAlgorithm::~cMlem2DNonBlindDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cMlem2DNonBlindDeconAlgorithm::SetUp() {
    Guard([&] {
        cIterativeDeconFramework& framework = LoadWithOperations(mOptimization);
        // The start, not the PSF, is scaled to sum 1.
        framework.AddImagePreprocessing(new cImageNormalizationConstraint(1.0f));
        framework.SetPreview(mPreview);
        framework.SetPsfPreview(mPsfPreview);
    });
}

void cMlem2DNonBlindDeconAlgorithm::UseCallbackStopCriterion(ovdStatusCallback callback) {
    Guard([&] { mStopCriterion->SetCallback(callback); });
}

void cMlem2DNonBlindDeconAlgorithm::Prepare() {
    Guard([&] { PrepareOperations(*mOptimization); });
}

void cMlem2DNonBlindDeconAlgorithm::Run() {
    Guard([&] { RunReleasingOneTimeOperations(); });
}

} // namespace Ovidane
