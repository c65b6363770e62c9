#pragma once
#include "decon/cObjectFirstGuess.h"
#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// Starts an iterative restoration from the inverse filter's result: the Wiener filter with
// K estimated from the data, then made non-negative by the parabolic compression at the sum
// of the data. The passes then start near their goal instead of at the blurred data.
//
// The settings come from the log of the algorithm it serves (spacing, regularisation
// factor, sub-pixel factors, guard bands, modality). For transmitted light the compression
// raises the estimate by a pedestal, and the same pedestal is taken off the original image
// (negatives set to 0), so that data and estimate stay comparable.
class cInverseFilteringObjectFirstGuess : public cObjectFirstGuess {
public:
    cInverseFilteringObjectFirstGuess();

    // The algorithm owns this guess; the pointer does not own it.
    void SetAlgorithm(cDeconAlgorithm* algorithm) override { mAlgorithm = algorithm; }
    cDeconAlgorithm* GetAlgorithm() const override { return mAlgorithm; }
    // A PSF to filter with in place of the run's own (which may be a flat sheet, useless to
    // a filter); it is made from the original image when the guess is applied.
    void SetPsfFirstGuess(const cPsfFirstGuessPtr& guess) { mPsfFirstGuess = guess; }
    cPsfFirstGuessPtr GetPsfFirstGuess() const { return mPsfFirstGuess; }

    // Needs a transform instance of the images' size on the calling thread. May change
    // `original` (transmitted light only).
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original, cFloatImagePtr& object) override;

private:
    cDeconAlgorithm* mAlgorithm = nullptr;
    cPsfFirstGuessPtr mPsfFirstGuess;
};

} // namespace Ovidane
