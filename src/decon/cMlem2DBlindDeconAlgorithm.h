#pragma once
#include "decon/cAcceleration.h"
#include "decon/cFrameworkDeconAlgorithm.h"
#include "decon/cMlem2DBlindMethodOptimization.h"

namespace Ovidane {

// Blind ML-EM for single planes: the PSF first guess is only where the estimate starts.
//
//   Load        the original image; the object is a second image
//   Prepare     PSF first guess (as for ML-EM, a theoretical one stretched by
//               DEC_RPARAMS_STRCH_FACTOR), scaled to sum 1; object first guess, scaled to
//               sum 1; a Gaussian blur of a data start when the regularisation asks for one
//   each pass   DEC_IPARAMS_MLEM2D_BLIND_38 PSF updates, then
//               DEC_IPARAMS_MLEM2D_NONBLIND_39 object updates, each kind with a vector
//               extrapolation of its own; both held above 0; then Good's roughness step
//   Finish      the result file, and the PSF estimate scaled to sum 1 when one is saved
//
// DEC_FPARAMS_STOPPING_CRITERION 64 lets the host extend the passes; any other value counts
// DEC_IPARAMS_TOTAL_ITERATIONS passes, as 63 does: the framework cannot run without a
// criterion, and the passes the caller set are the natural one.
//
// Without `extrapolatePsf` the PSF takes plain steps. Extrapolated, the PSF of a plane of
// beads and lines started 1.5 times too wide passes through its true width in 10 to 15
// passes and then shrinks to a single pixel, the object to the data; with plain steps it
// nears its true width over 20 to 30 passes and shrinks far more slowly.
class cMlem2DBlindDeconAlgorithm : public cFrameworkDeconAlgorithm {
public:
    explicit cMlem2DBlindDeconAlgorithm(cCountedPtr<cDeconLog> log, bool extrapolatePsf = true);
    ~cMlem2DBlindDeconAlgorithm() override;

    void SetUp() override;
    // Hands the callback to the criterion this algorithm holds.
    void UseCallbackStopCriterion(ovdStatusCallback callback) override;
    void Prepare() override;
    void Run() override;

    cMlem2DBlindMethodOptimizationPtr GetOptimization() const { return mOptimization; }

private:
    cMlem2DBlindMethodOptimizationPtr mOptimization;
};

} // namespace Ovidane
