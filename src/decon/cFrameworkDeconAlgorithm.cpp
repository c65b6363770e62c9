#include "decon/cFrameworkDeconAlgorithm.h"

#include "core/cStatusUpdateHandler.h"
#include "decon/cDerivedPsfFirstGuess.h"
#include "decon/cFlatSheetPsfFirstGuess.h"
#include "decon/cIterativeCallbackStopCriterion.h"
#include "decon/cIterativeStopCriterion.h"
#include "decon/cLineSearchAcceleration.h"
#include "decon/cVectorExtrapolationAcceleration.h"
#include "image/cMemoryManagerContainer.h"

namespace Ovidane {

void cFrameworkDeconAlgorithm::MakeFramework(bool objectSharesOriginal) {
    mIterativeFramework = new cIterativeDeconFramework(mLog, mSize);
    mIterativeFramework->SetObjectSharesOriginal(objectSharesOriginal);
    mFramework = mIterativeFramework;
}

void cFrameworkDeconAlgorithm::CountPassesAsTheLogSays() {
    cDeconParameter& p = mLog->GetParameters();
    // A save interval of 0 would also leave the framework's divisibility test without a
    // divisor.
    if (p.GetInt(DEC_IPARAMS_SAVE_INTERVAL) == 0)
        p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, p.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS));
    mStopCriterion = new cIterativeStopCriterion(mLog);
}

cIterativeDeconFramework&
cFrameworkDeconAlgorithm::LoadWithOperations(const cOptimizationPtr& optimization) {
    cIterativeDeconFramework& framework = *mIterativeFramework;
    framework.Load();
    framework.SetPsfFirstGuess(mPsfFirstGuess);
    framework.SetOptimization(optimization);
    framework.SetObjectSmoothing(mObjectSmoothing);
    framework.SetIterationSmoothing(mIterationSmoothing);
    framework.SetStopCriterion(mStopCriterion);
    framework.SetObjectFirstGuess(mObjectFirstGuess);
    return framework;
}

void cFrameworkDeconAlgorithm::PrepareOperations(cOptimization& optimization) {
    mPsfFirstGuess->SetFileName(mLog->GetParameters().GetString(DEC_SPARAMS_INPUT_PSF_FILE));
    optimization.Initialize();
    for (const cNoiseSmoothingPtr& smoothing : {mObjectSmoothing, mIterationSmoothing})
        if (smoothing)
            smoothing->Initialize(mSize);
    mStopCriterion->Initialize();
}

void cFrameworkDeconAlgorithm::RunReleasingOneTimeOperations() {
    mIterativeFramework->Prepare();
    mObjectFirstGuess = cObjectFirstGuessPtr();
    mObjectSmoothing = cNoiseSmoothingPtr();
    mIterativeFramework->Iterate();
}

cAccelerationPtr cFrameworkDeconAlgorithm::MakeMlemAcceleration() const {
    const cDeconParameter& p = mLog->GetParameters();
    if (p.GetBool(DEC_BPARAMS_VECTOR_EXTRAPOLATION))
        return new cVectorExtrapolationAcceleration();
    cCountedPtr<cLineSearchAcceleration> search(new cLineSearchAcceleration());
    search->SetGuardBands(static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND)),
                          static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND)),
                          static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND)),
                          static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND)),
                          static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND)),
                          static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND)));
    return search;
}

cPsfFirstGuessPtr cFrameworkDeconAlgorithm::MakeMlemPsfFirstGuess(float stretch) const {
    switch (mLog->GetParameters().GetFlag(DEC_FPARAMS_PSF_GUESS_METHOD)) {
    case DEC_FLAG_PGM_AUTOCORRELATION:
        return new cDerivedPsfFirstGuess();
    case DEC_FLAG_PGM_PSF_INPUT:
        return MakeLoadFilePsfFirstGuess(false);
    case DEC_FLAG_PGM_FLAT_SHEET:
        return new cFlatSheetPsfFirstGuess();
    default:
        return MakeTheoreticalPsfFirstGuess(stretch);
    }
}

void cFrameworkDeconAlgorithm::SizeForTheLog(cOptimization& optimization) const {
    const cDeconParameter& p = mLog->GetParameters();
    // A factor below 1 has no meaning; the measured grid is then the restored one.
    auto factor = [](int32_t value) { return value > 1 ? static_cast<uint32_t>(value) : 1u; };
    optimization.SetSubPixelFactors(factor(p.GetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR)),
                                    factor(p.GetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR)));
    optimization.SetDimensions(mSize);
}

void cFrameworkDeconAlgorithm::SetStatusCallback(ovdStatusCallback callback, void* userData) {
    Guard([&] {
        mIterativeFramework->SetStatusUpdateHandler(new cStatusUpdateHandler(callback, userData));
    });
}

void cFrameworkDeconAlgorithm::SetStatusCallback(ovdStatusCallback callback) {
    Guard([&] { mIterativeFramework->SetStatusUpdateHandler(new cStatusUpdateHandler(callback)); });
}

void cFrameworkDeconAlgorithm::SetSubvolumeProgress(int16_t index, int16_t count) {
    Guard([&] { mIterativeFramework->SetSubvolumeProgress(index, count); });
}

void cFrameworkDeconAlgorithm::UseCallbackStopCriterion(ovdStatusCallback callback) {
    Guard([&] {
        mStopCriterion = new cIterativeCallbackStopCriterion(mLog, callback);
        mIterativeFramework->SetStopCriterion(mStopCriterion);
    });
}

void cFrameworkDeconAlgorithm::SharePsfFirstGuess(cCountedPtr<cSharedPsfFirstGuess>& shared) {
    Guard([&] { JoinSharedPsfFirstGuess(mPsfFirstGuess, shared); });
}

void cFrameworkDeconAlgorithm::Initialize() {
    Guard([&] {
        SetMemoryManagerContainer(&cMemoryManagerContainer::Instance());
        InitializeTransforms();
        mInitialized = true;
    });
}

void cFrameworkDeconAlgorithm::UpdatePreview(cFloatImagePtr& preview) {
    Guard([&] { mIterativeFramework->UpdatePreview(preview); });
}

void cFrameworkDeconAlgorithm::UpdatePsfPreview(cFloatImagePtr& preview) {
    Guard([&] { mIterativeFramework->UpdatePsfPreview(preview); });
}

} // namespace Ovidane
