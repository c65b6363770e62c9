#pragma once
#include <cstdint>

#include "decon/cFrameworkDeconAlgorithm.h"
#include "decon/cGoldsMethodOptimization.h"
#include "decon/cIterativeDeconFramework.h"
#include "decon/cNoiseSmoothing.h"
#include "decon/cObjectFirstGuess.h"
#include "decon/cPreview.h"
#include "decon/cPsfFirstGuess.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "decon/cStopCriterion.h"

namespace Ovidane {

// Iterative restoration of a stack by Gold's ratio method, x ← x · g / (x ⊗ h): one
// convolution a pass, half of what ML-EM needs, and no acceleration. What keeps it from
// amplifying noise is a Gaussian blur of the estimate every DEC_IPARAMS_GOLDS_SMOOTH_ITER
// passes, of width DEC_RPARAMS_GOLDS_SMOOTH_GAUSS (lateral pixels, full width at half
// maximum).
//
// An interval of 0 (the log's start value) or a width that isn't positive means no blur
// between the passes: the plain ratio iteration. Refusing it instead would make the run
// fail on a setting whose literal meaning, "never", is clear enough.
//
// The PSF comes from a file, is the flat sheet, or is the theoretical one with the stretch
// DEC_RPARAMS_STRCH_FACTOR; the object first guess and its optional pre-blur are those of
// ML-EM. The PSF preview stays with the algorithm: the framework is not given it.
class cGoldsDeconAlgorithm : public cFrameworkDeconAlgorithm {
public:
    explicit cGoldsDeconAlgorithm(cCountedPtr<cDeconLog> log);
    ~cGoldsDeconAlgorithm() override;

    void SetUp() override;
    void Prepare() override;
    void Run() override;

    cGoldsMethodOptimizationPtr GetOptimization() const { return mOptimization; }

private:
    cGoldsMethodOptimizationPtr mOptimization;
};

} // namespace Ovidane
