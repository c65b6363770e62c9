#pragma once
#include <string>

#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// One PSF for a series of restorations of one size and one optics, such as the subvolumes
// of a cut: the guess it wraps makes the PSF on the first Apply, and every later Apply gets
// a copy of it, the same bit for bit, at the cost of one image held between the
// restorations. Only guesses that do not look at the original image may be shared.
class cSharedPsfFirstGuess : public cPsfFirstGuess {
public:
    explicit cSharedPsfFirstGuess(cPsfFirstGuessPtr guess);

    // Passed on to the wrapped guess.
    void SetFileName(const std::string& name) override;
    // Fills psf, made at the kept PSF's size when it is empty; a psf of another size is
    // refused.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;

private:
    cPsfFirstGuessPtr mGuess;
    cFloatImagePtr mKept;
};

} // namespace Ovidane
