#pragma once
#include <string>

#include "core/cDeconOperation.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Makes the PSF a restoration starts from: an image of exactly the size of the stack or
// subvolume being restored, its centre at pixel (0,0,0) and the rest wrapped round the edges.
class cPsfFirstGuess : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cPsfFirstGuess() override = default;

    // The PSF file of the run; a guess that reads no file ignores it.
    virtual void SetFileName(const std::string& name) = 0;
    // Fills `psf`, or makes it when it is empty. `original` is the stack to be restored.
    virtual void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) = 0;

    // A guess shared by a series of restorations may keep the PSF as the first of them
    // prepared it, for the others to take instead of making and preparing it again.
    // TakePrepared fills `psf` with it and answers true, or answers false when none is kept;
    // KeepPrepared keeps `psf` as it is now. With `readOnly` the restoration promises never
    // to write its PSF, and the image itself may be passed on instead of a copy.
    virtual bool TakePrepared(cFloatImagePtr& psf, bool readOnly) {
        (void)psf;
        (void)readOnly;
        return false;
    }
    virtual void KeepPrepared(const cFloatImagePtr& psf, bool readOnly) {
        (void)psf;
        (void)readOnly;
    }
};

using cPsfFirstGuessPtr = cCountedPtr<cPsfFirstGuess>;

} // namespace Ovidane
