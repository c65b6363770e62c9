#include "decon/cMlem2DBlindDeconAlgorithm.h"

#include <algorithm>

#include "decon/cGoodsRoughnessNoiseSmoothing.h"
#include "decon/cImageNormalizationConstraint.h"
#include "decon/cIterativeCallbackStopCriterion.h"
#include "decon/cNoAcceleration.h"
#include "decon/cVectorExtrapolationAcceleration.h"

namespace Ovidane {
namespace {

uint32_t Count(int32_t value) {
    return static_cast<uint32_t>(std::max(value, 0));
}

} // namespace

cMlem2DBlindDeconAlgorithm::cMlem2DBlindDeconAlgorithm(cCountedPtr<cDeconLog> log,
                                                       bool extrapolatePsf)
    : cFrameworkDeconAlgorithm(std::move(log)) {
    Guard([&] {
        cDeconParameter& p = mLog->GetParameters();
        ReadGeometry();
        MakeFramework(false);

        mOptimization = new cMlem2DBlindMethodOptimization(
            Count(p.GetInt(DEC_IPARAMS_MLEM2D_NONBLIND_39)),
            Count(p.GetInt(DEC_IPARAMS_MLEM2D_BLIND_38)));
        // The object's extrapolation whatever the log says.
        mOptimization->SetAcceleration(new cVectorExtrapolationAcceleration());
        if (extrapolatePsf)
            mOptimization->SetPsfAcceleration(new cVectorExtrapolationAcceleration());
        else
            mOptimization->SetPsfAcceleration(new cNoAcceleration());
        SizeForTheLog(*mOptimization);

        mObjectSmoothing = MakeObjectSmoothing(1.0f);
        mIterationSmoothing =
            new cGoodsRoughnessNoiseSmoothing(p.GetReal(DEC_RPARAMS_GOODS_FACTOR));
        mPsfFirstGuess = MakeMlemPsfFirstGuess(StretchFactor());
        mObjectFirstGuess = MakeObjectFirstGuess(std::nullopt);
        MakePreviews(mPreview, mPsfPreview, true, true);

        CountPassesAsTheLogSays();
        if (p.GetFlag(DEC_FPARAMS_STOPPING_CRITERION) == DEC_FLAG_SC_ITERATIVE_CALLBACK)
            mStopCriterion = new cIterativeCallbackStopCriterion(mLog);
    });
    SetObjectName("cMlem2DBlindDeconAlgorithm");
}

cMlem2DBlindDeconAlgorithm::~cMlem2DBlindDeconAlgorithm() {
    DeleteOriginalFileIfOwned();
}

void cMlem2DBlindDeconAlgorithm::SetUp() {
    Guard([&] {
        cIterativeDeconFramework& framework = LoadWithOperations(mOptimization);
        // Both estimates start with sum 1.
        framework.AddPsfPreprocessing(new cImageNormalizationConstraint(1.0f));
        framework.AddImagePreprocessing(new cImageNormalizationConstraint(1.0f));
        framework.SetPreview(mPreview);
        framework.SetPsfPreview(mPsfPreview);
    });
}

void cMlem2DBlindDeconAlgorithm::UseCallbackStopCriterion(ovdStatusCallback callback) {
    Guard([&] { mStopCriterion->SetCallback(callback); });
}

void cMlem2DBlindDeconAlgorithm::Prepare() {
    Guard([&] { PrepareOperations(*mOptimization); });
}

void cMlem2DBlindDeconAlgorithm::Run() {
    Guard([&] { RunReleasingOneTimeOperations(); });
}

} // namespace Ovidane
