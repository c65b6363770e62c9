#pragma once
#include <cstdint>

#include "decon/cAcceleration.h"
#include "decon/cDeconAlgorithm.h"
#include "decon/cIterativeDeconFramework.h"
#include "decon/cNoiseSmoothing.h"
#include "decon/cObjectFirstGuess.h"
#include "decon/cOptimization.h"
#include "decon/cPreview.h"
#include "decon/cPsfFirstGuess.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "decon/cStopCriterion.h"

namespace Ovidane {

// What every algorithm on the iterative framework has alike: the framework it wires, its
// PSF first guess, stop criterion and previews, and the members that only hand something
// to the framework (status, progress, previews, a shared PSF) or make the services ready.
// An algorithm adds its own wiring: constructor, SetUp, Prepare, Run.
class cFrameworkDeconAlgorithm : public cDeconAlgorithm {
public:
    using cDeconAlgorithm::cDeconAlgorithm;

    void SetStatusCallback(ovdStatusCallback callback, void* userData) override;
    void SetStatusCallback(ovdStatusCallback callback) override;
    void SetSubvolumeProgress(int16_t index, int16_t count) override;
    // The planned passes end in a question to the host, which may extend them.
    void UseCallbackStopCriterion(ovdStatusCallback callback) override;
    // Pixel memory comes only through the images; nothing to keep.
    void SetMemoryManagerContainer(cMemoryManagerContainer* container) override { (void)container; }
    void SharePsfFirstGuess(cCountedPtr<cSharedPsfFirstGuess>& shared) override;
    void Initialize() override;
    void UpdatePreview(cFloatImagePtr& preview) override;
    void UpdatePsfPreview(cFloatImagePtr& preview) override;

    bool IsInitialized() const { return mInitialized; }
    cCountedPtr<cIterativeDeconFramework> GetFramework() const { return mIterativeFramework; }
    cPsfFirstGuessPtr GetPsfFirstGuess() const { return mPsfFirstGuess; }
    cStopCriterionPtr GetStopCriterion() const { return mStopCriterion; }
    cPreviewPtr GetPreview() const { return mPreview; }
    cPreviewPtr GetPsfPreview() const { return mPsfPreview; }
    cObjectFirstGuessPtr GetObjectFirstGuess() const { return mObjectFirstGuess; }
    cNoiseSmoothingPtr GetObjectSmoothing() const { return mObjectSmoothing; }
    cNoiseSmoothingPtr GetIterationSmoothing() const { return mIterationSmoothing; }

protected:
    // The framework for the stack's size (ReadGeometry first). With `objectSharesOriginal`
    // the restoration happens in place, for a method that needs the data no more once it
    // has started.
    void MakeFramework(bool objectSharesOriginal);
    // An iterative method runs DEC_IPARAMS_TOTAL_ITERATIONS passes, as the caller set them,
    // and saves only its result unless the log asks for intermediate files.
    void CountPassesAsTheLogSays();
    // The framework with the original image loaded and the algorithm's operations handed to
    // it: PSF first guess, optimization, smoothings, stop criterion, object first guess. An
    // algorithm's SetUp adds its pre-processing and previews.
    cIterativeDeconFramework& LoadWithOperations(const cOptimizationPtr& optimization);
    // The last settings of an iterative method: the PSF file's name, then the
    // initialisation of its optimization, smoothings and stop criterion.
    void PrepareOperations(cOptimization& optimization);
    // The framework's preparation and passes. The one-time operations (the start and its
    // blur) are let go between the two, so that what they hold (a whole restoration, a
    // kernel's transform) does not sit on memory through the passes.
    void RunReleasingOneTimeOperations();

    // ---- What the ML-EM methods build alike.
    // The line search, or the vector extrapolation where DEC_BPARAMS_VECTOR_EXTRAPOLATION
    // asks for it.
    cAccelerationPtr MakeMlemAcceleration() const;
    // The PSF file, the PSF derived from the data, the flat sheet, or else the theoretical
    // PSF stretched by `stretch`.
    cPsfFirstGuessPtr MakeMlemPsfFirstGuess(float stretch) const;
    // The stack's size and the log's sub-pixel factors.
    void SizeForTheLog(cOptimization& optimization) const;

    cCountedPtr<cIterativeDeconFramework> mIterativeFramework;
    cPsfFirstGuessPtr mPsfFirstGuess;
    cStopCriterionPtr mStopCriterion;
    cPreviewPtr mPreview;
    cPreviewPtr mPsfPreview;
    // Those of the iterative methods; empty for the inverse filter.
    cObjectFirstGuessPtr mObjectFirstGuess;
    cNoiseSmoothingPtr mObjectSmoothing;
    cNoiseSmoothingPtr mIterationSmoothing;

private:
    bool mInitialized = false;
};

} // namespace Ovidane
