#pragma once
#include "decon/cAcceleration.h"
#include "decon/cFrameworkDeconAlgorithm.h"
#include "decon/cMlem2DNonBlindMethodOptimization.h"

namespace Ovidane {

// ML-EM with a known PSF for single planes (a widefield or confocal plane, a projection):
//
//   Load        the original image; the object is a second image
//   Prepare     PSF first guess (file, theoretical, derived from the data or flat); object
//               first guess, scaled to sum 1; a Gaussian blur of a data start when the
//               regularisation asks for one
//   each pass   DEC_IPARAMS_MLEM2D_NONBLIND_39 updates x ← x · ((g / (x ⊗ h)) ⋆ h), each
//               carried on by the line search or the vector extrapolation, then the PSF and
//               the object held above 0, then Good's roughness step
//   Finish      the result file
//
// Each update restores the data's sum, whatever the start's, so the result keeps the data's
// intensity scale.
class cMlem2DNonBlindDeconAlgorithm : public cFrameworkDeconAlgorithm {
public:
    explicit cMlem2DNonBlindDeconAlgorithm(cCountedPtr<cDeconLog> log);
    ~cMlem2DNonBlindDeconAlgorithm() override;

    void SetUp() override;
    // Hands the callback to the pass-counting criterion this algorithm holds.
    void UseCallbackStopCriterion(ovdStatusCallback callback) override;
    void Prepare() override;
    void Run() override;

    cMlem2DNonBlindMethodOptimizationPtr GetOptimization() const { return mOptimization; }

private:
    cMlem2DNonBlindMethodOptimizationPtr mOptimization;
};

} // namespace Ovidane
