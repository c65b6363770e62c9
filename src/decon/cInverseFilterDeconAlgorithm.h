#pragma once
#include <cstdint>

#include "decon/cFrameworkDeconAlgorithm.h"
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
//
// A subvolume of a run with DEC_BPARAMS_STACK_ESTIMATES restores with what describes the
// whole stack: the background given in its log, the non-negativity step left to the
// blending, and an estimated K taken from the stack's plane (the first subvolume, which
// writes it to DEC_RPARAMS_STACK_REGULARIZATION) or given (the others).
class cInverseFilterDeconAlgorithm : public cFrameworkDeconAlgorithm {
public:
    // All settings come from the log of one stack or subvolume: its size and spacing, the
    // PSF source, the noise level, the preview methods. The log gets one pass and a save
    // interval of 1.
    explicit cInverseFilterDeconAlgorithm(cCountedPtr<cDeconLog> log);
    ~cInverseFilterDeconAlgorithm() override;

    void SetUp() override;
    void Prepare() override;
    void Run() override;

    cInverseFilterOptimizationPtr GetOptimization() const { return mInverseOptimization; }

    // For a restoration of a file restored before, whose transform and K plane the
    // optimization has been given filled (UseImageSpectrum, UseImagePlane) and whose raw
    // sum an earlier SetUp found (GetRawSum): the file is not read again, and the
    // non-negativity step takes `rawSum`. Before SetUp. The result is the same bit for bit.
    void UseKeptOriginal(float rawSum);
    // The sum of the raw data, as SetUp found or was given it; 0 before SetUp.
    float GetRawSum() const { return mRawSum; }

private:
    cInverseFilterOptimizationPtr mInverseOptimization;
    cOptimizationPtr mOptimization;
    bool mEstimatesStackK = false;
    bool mOriginalKept = false;
    float mRawSum = 0.0f;
};

} // namespace Ovidane
