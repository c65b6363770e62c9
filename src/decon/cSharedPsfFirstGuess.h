#pragma once
#include <string>

#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// One PSF for a series of restorations of one size and one optics, such as the subvolumes
// of a cut: the guess it wraps makes the PSF on the first Apply, and every later Apply gets
// a copy of it, the same bit for bit, at the cost of one image held between the
// restorations. Once the first restoration has prepared its PSF and kept it here, the
// others take the prepared PSF instead: a copy, or the kept image itself, frozen, for those
// that never write it. Before that, the wrapped guess is asked for a prepared PSF of its own,
// and is handed the prepared one to keep. Only guesses that do not look at the original
// image may be shared.
class cSharedPsfFirstGuess : public cPsfFirstGuess {
public:
    explicit cSharedPsfFirstGuess(cPsfFirstGuessPtr guess);

    // Passed on to the wrapped guess.
    void SetFileName(const std::string& name) override;
    // Fills psf, made at the kept PSF's size when it is empty; a psf of another size is
    // refused.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;
    bool TakePrepared(cFloatImagePtr& psf, bool readOnly) override;
    // The PSF as made is needed no more once the prepared one is kept, and is let go.
    void KeepPrepared(const cFloatImagePtr& psf, bool readOnly) override;

private:
    // target = source, target made at source's size when it is empty; another size is refused.
    void CopyInto(const cFloatImagePtr& source, cFloatImagePtr& target) const;

    cPsfFirstGuessPtr mGuess;
    cFloatImagePtr mKept;
    cFloatImagePtr mPrepared;
};

} // namespace Ovidane
