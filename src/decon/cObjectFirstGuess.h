#pragma once
#include "core/cDeconOperation.h"
#include "image/cOvdImage.h"

namespace Ovidane {

class cDeconAlgorithm;

// Makes the object estimate an iterative restoration starts from.
class cObjectFirstGuess : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cObjectFirstGuess() override = default;

    // A guess that needs the algorithm it serves (for its log, say) is told it here. The
    // algorithm owns the guess, so this is a plain, non-owning pointer.
    virtual void SetAlgorithm(cDeconAlgorithm* algorithm) { (void)algorithm; }
    virtual cDeconAlgorithm* GetAlgorithm() const { return nullptr; }
    // A slot kept free for a guess's own use; nothing calls it.
    virtual void Reserved() {}
    // Fills `object` from the original image and the PSF.
    virtual void Apply(cFloatImagePtr& psf, cFloatImagePtr& original, cFloatImagePtr& object) = 0;
};

using cObjectFirstGuessPtr = cCountedPtr<cObjectFirstGuess>;

} // namespace Ovidane
