#pragma once
#include "core/cImageDimensions.h"
#include "decon/cPsfFirstGuess.h"
#include "math/ExactScalarPsf.h"

namespace Ovidane {

// The theoretical PSF by the exact scalar model (GenerateExactScalarPsf) at the image's
// size and spacing, its z spacing divided by the axial scale as the specified model's is.
class cExactPsfFirstGuess : public cPsfFirstGuess {
public:
    cExactPsfFirstGuess(const float spacing[3], const cImageDimensions& size,
                        const cExactPsfOptics& optics, float axialScale);

    void SetFileName(const std::string&) override {}
    // Fills psf, made at the object's size when it is empty.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;

private:
    float mSpacing[3];
    cImageDimensions mSize;
    cExactPsfOptics mOptics;
};

} // namespace Ovidane
