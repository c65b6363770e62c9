#include "decon/cFrameworkDeconAlgorithm.h"

#include "core/cStatusUpdateHandler.h"
#include "decon/cIterativeCallbackStopCriterion.h"
#include "decon/cIterativeStopCriterion.h"
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
