#pragma once
#include <string>

#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// A PSF of constant value 1 at every pixel: no assumption about the optics at all, for
// restorations that estimate the PSF along with the object.
class cFlatSheetPsfFirstGuess : public cPsfFirstGuess {
public:
    cFlatSheetPsfFirstGuess();

    // Reads no file, so the name is not kept.
    void SetFileName(const std::string& /*name*/) override {}
    // Sets psf to 1.0 everywhere; an empty psf is made at original's size.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;
};

} // namespace Ovidane
