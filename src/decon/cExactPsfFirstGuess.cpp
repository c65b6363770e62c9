#include "decon/cExactPsfFirstGuess.h"

namespace Ovidane {

cExactPsfFirstGuess::cExactPsfFirstGuess(const float spacing[3], const cImageDimensions& size,
                                         const cExactPsfOptics& optics, float axialScale)
    : mSpacing{spacing[0], spacing[1], axialScale > 0.0f ? spacing[2] / axialScale : spacing[2]},
      mSize(size), mOptics(optics) {
    SetObjectName("cExactPsfFirstGuess");
}

void cExactPsfFirstGuess::Apply(cFloatImagePtr& psf, cFloatImagePtr& /*original*/) {
    Guard([&] {
        if (!psf)
            psf = cFloatImagePtr(new cOvdImage<float>(mSize, GetObjectName()));
        GenerateExactScalarPsf(psf, mSpacing, mOptics);
    });
}

} // namespace Ovidane
