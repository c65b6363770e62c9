#pragma once
#include <string>

#include "core/cImageDimensions.h"
#include "decon/cPsfFirstGuess.h"

namespace Ovidane {

// A measured PSF read from a raw float stack. The file's PSF is taken as centred in its
// stack (its centre at pixel size/2 on each axis); it is resampled to the image's spacing,
// cut or padded to the image's size round that centre, and moved so that the centre lands
// on pixel (0,0,0).
//
// No re-centring on the brightest values takes place: a measured PSF whose peak lies off
// its stack's centre carries an axial or lateral offset of the optics, and moving it would
// shift every restored image by the opposite amount.
class cLoadFilePsfFirstGuess : public cPsfFirstGuess {
public:
    cLoadFilePsfFirstGuess(const cImageDimensions& imageSize, float imageSpacingX,
                           float imageSpacingY, float imageSpacingZ,
                           const cImageDimensions& psfSize, float psfSpacingX, float psfSpacingY,
                           float psfSpacingZ);

    void SetFileName(const std::string& name) override { mFileName = name; }
    // Reads the file and fills psf, made at the image's size when it is empty.
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override;

    // Brings a PSF of the file's spacing to the image's spacing and size, centre kept in the
    // middle of the stack. A source that already has both is handed on as it is.
    virtual void ResampleToImageGrid(const cFloatImagePtr& source, cFloatImagePtr& destination);

    // Bytes that resampling a PSF of `psfSize` from `psfSpacing` to `imageSpacing` holds at
    // its peak: the file's PSF, the two partial passes and the whole resampled PSF before it
    // is cut to the image's size. A PSF whose spacing was read in the wrong unit asks here
    // for a grid a thousand times too large on every axis; a run compares this with its
    // budget before anything is allocated.
    static double ResamplingBytes(const cImageDimensions& psfSize, const float psfSpacing[3],
                                  const float imageSpacing[3], bool onePlane);

protected:
    std::string mFileName;
    cImageDimensions mImageSize;
    float mImageSpacing[3];
    cImageDimensions mPsfSize;
    float mPsfSpacing[3];
    // Scratch of the origin shift, kept for a repeated Apply at the same size.
    cFloatImagePtr mWork;
};

} // namespace Ovidane
