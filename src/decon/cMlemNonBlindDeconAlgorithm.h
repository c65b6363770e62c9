#pragma once
#include <cstdint>

#include "decon/cAcceleration.h"
#include "decon/cFrameworkDeconAlgorithm.h"
#include "decon/cIterativeDeconFramework.h"
#include "decon/cMlemNonBlindMethodOptimization.h"
#include "decon/cNoiseSmoothing.h"
#include "decon/cObjectFirstGuess.h"
#include "decon/cPreview.h"
#include "decon/cPsfFirstGuess.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "decon/cStopCriterion.h"

namespace Ovidane {

// Iterative restoration of a stack by ML-EM with a known PSF, accelerated, with Good's
// roughness step after each pass:
//
//   Load        the original image; the object is a second image
//   Prepare     PSF first guess (file, theoretical, derived from the data or flat); PSF
//               cleaned when measured and asked for; PSF scaled to sum 1; object first
//               guess (the data, the inverse filter's result, a flat sheet or a file); a
//               Gaussian blur of a data start when the regularisation asks for one
//   each pass   x ← x · ((g / (x ⊗ h)) ⋆ h), carried further by the line search or the
//               vector extrapolation (DEC_BPARAMS_VECTOR_EXTRAPOLATION), held above 0, then
//               Good's roughness step with β = DEC_RPARAMS_GOODS_FACTOR · 1e-4
//   Finish      the result file
//
// DEC_IPARAMS_TOTAL_ITERATIONS passes, as the caller set them. A save interval of 0 becomes
// the total, so that no intermediate file is written.
class cMlemNonBlindDeconAlgorithm : public cFrameworkDeconAlgorithm {
public:
    explicit cMlemNonBlindDeconAlgorithm(cCountedPtr<cDeconLog> log);
    ~cMlemNonBlindDeconAlgorithm() override;

    void SetUp() override;
    // Hands the callback to the pass-counting criterion this algorithm holds; nothing new
    // is built.
    void UseCallbackStopCriterion(ovdStatusCallback callback) override;
    void Prepare() override;
    void Run() override;

    cMlemNonBlindMethodOptimizationPtr GetOptimization() const { return mOptimization; }
    cAccelerationPtr GetAcceleration() const { return mAcceleration; }

private:
    cMlemNonBlindMethodOptimizationPtr mOptimization;
    cAccelerationPtr mAcceleration;
};

} // namespace Ovidane
