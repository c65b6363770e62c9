#pragma once
#include <cstdint>

#include "decon/cDeconAlgorithm.h"
#include "decon/cInverseFilterOptimization.h"
#include "decon/cIterativeDeconFramework.h"
#include "decon/cPreview.h"
#include "decon/cPsfFirstGuess.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "decon/cStopCriterion.h"

namespace Ovidane {

// The restoration that the exported operations run: the regularised inverse (Wiener)
// filter, applied once to a stack or subvolume. It wires the framework for exactly one
// pass, in place:
//
//   Load        the original image, which is also the object image
//   Prepare     PSF first guess (file or theoretical); PSF pre-processing for measured
//               PSFs when asked; PSF scaled to sum 1; background subtracted from the image
//   the pass    G·conj(H) / (|H|² + K), then the non-negativity compression at the sum of
//               the raw data (left out for phase objects)
//   Finish      the result file
class cInverseFilterDeconAlgorithm : public cDeconAlgorithm {
public:
    // All settings come from the log of one stack or subvolume: its size and spacing, the
    // PSF source, the noise level, the preview methods. The log gets one pass and a save
    // interval of 1.
    explicit cInverseFilterDeconAlgorithm(cCountedPtr<cDeconLog> log);
    ~cInverseFilterDeconAlgorithm() override;

    void SetUp() override;
    void SetStatusCallback(ovdStatusCallback callback, void* userData) override;
    void SetStatusCallback(ovdStatusCallback callback) override;
    void SetSubvolumeProgress(int16_t index, int16_t count) override;
    void UseCallbackStopCriterion(ovdStatusCallback callback) override;
    // The filter allocates only through the images it makes; nothing to keep.
    void SetMemoryManagerContainer(cMemoryManagerContainer* container) override { (void)container; }
    void Initialize() override;
    void Prepare() override;
    void Run() override;
    void UpdatePreview(cFloatImagePtr& preview) override;
    void UpdatePsfPreview(cFloatImagePtr& preview) override;

    void SharePsfFirstGuess(cCountedPtr<cSharedPsfFirstGuess>& shared) override;

    bool IsInitialized() const { return mInitialized; }
    cCountedPtr<cIterativeDeconFramework> GetFramework() const { return mIterativeFramework; }
    cInverseFilterOptimizationPtr GetOptimization() const { return mInverseOptimization; }
    cPsfFirstGuessPtr GetPsfFirstGuess() const { return mPsfFirstGuess; }
    cStopCriterionPtr GetStopCriterion() const { return mStopCriterion; }
    cPreviewPtr GetPreview() const { return mPreview; }
    cPreviewPtr GetPsfPreview() const { return mPsfPreview; }

private:
    cCountedPtr<cIterativeDeconFramework> mIterativeFramework;
    cInverseFilterOptimizationPtr mInverseOptimization;
    cPsfFirstGuessPtr mPsfFirstGuess;
    cStopCriterionPtr mStopCriterion;
    cOptimizationPtr mOptimization;
    cPreviewPtr mPreview;
    cPreviewPtr mPsfPreview;
    bool mInitialized = false;
};

} // namespace Ovidane
