#pragma once
#include "decon/cLoadFilePsfFirstGuess.h"

namespace Ovidane {

// A measured PSF taken as it was measured: read like any PSF file, but brought to the image's
// grid about its centre (ResampleAboutCentre), with zeros wherever the file has no samples.
//
// The file-reading guess places a PSF (T - M) >> 1 pixels into the image, which on an image
// of even size T puts the centre of a file of odd size M one pixel before T/2, where the
// origin shift expects it, and every restored image moves by that pixel. Its resampling
// aligns the grids at their first sample rather than at their centres. And it bridges the
// rim around a PSF smaller than the image from the PSF's border: the far planes of a
// widefield PSF are bright at the border of any practical box, so the bridge fills the rim
// with light the file never held, several times the focal plane's in planes a few
// micrometres from focus. Restoring with that PSF undoes a blur the microscope did not make.
class cCentredFilePsfFirstGuess : public cLoadFilePsfFirstGuess {
public:
    cCentredFilePsfFirstGuess(const cImageDimensions& imageSize, float imageSpacingX,
                              float imageSpacingY, float imageSpacingZ,
                              const cImageDimensions& psfSize, float psfSpacingX, float psfSpacingY,
                              float psfSpacingZ);

    void ResampleToImageGrid(const cFloatImagePtr& source, cFloatImagePtr& destination) override;
};

} // namespace Ovidane
