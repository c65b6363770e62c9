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
};

using cPsfFirstGuessPtr = cCountedPtr<cPsfFirstGuess>;

} // namespace Ovidane
