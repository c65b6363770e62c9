#include "decon/cCentredFilePsfFirstGuess.h"

#include "core/cException.h"
#include "math/CentredResampling.h"

namespace Ovidane {

cCentredFilePsfFirstGuess::cCentredFilePsfFirstGuess(const cImageDimensions& imageSize,
                                                     float imageSpacingX, float imageSpacingY,
                                                     float imageSpacingZ,
                                                     const cImageDimensions& psfSize,
                                                     float psfSpacingX, float psfSpacingY,
                                                     float psfSpacingZ)
    : cLoadFilePsfFirstGuess(imageSize, imageSpacingX, imageSpacingY, imageSpacingZ, psfSize,
                             psfSpacingX, psfSpacingY, psfSpacingZ) {
    SetObjectName("cCentredFilePsfFirstGuess");
}

void cCentredFilePsfFirstGuess::ResampleToImageGrid(const cFloatImagePtr& source,
                                                    cFloatImagePtr& destination) {
    Guard([&] {
        if (!source)
            Fail("NULL input image in ResampleToImageGrid", OVD_ERR_PARAMETER);
        destination = cFloatImagePtr(new cOvdImage<float>(mImageSize, GetObjectName()));
        ResampleAboutCentre(source, mPsfSpacing, destination, mImageSpacing);
    });
}

} // namespace Ovidane
