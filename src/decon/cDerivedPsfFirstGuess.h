#pragma once
#include <string>

#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// A PSF derived from the stack itself: its autocorrelation, lifted so that every pixel
// stays a little above zero. It needs the transform instance of the stack's size, which
// the framework sets up before it asks for the PSF.
class cDerivedPsfFirstGuess : public cPsfFirstGuess {
public:
    cDerivedPsfFirstGuess();

    void SetFileName(const std::string& name) override { mFileName = name; }
    // Always makes a new psf at original's size. Without an original it only says so.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;

private:
    std::string mFileName;
};

} // namespace Ovidane
