#pragma once
#include "decon/cObjectFirstGuess.h"

namespace Ovidane {

// Starts the restoration from the measured data themselves.
class cOriginalImageObjectFirstGuess : public cObjectFirstGuess {
public:
    cOriginalImageObjectFirstGuess();

    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original, cFloatImagePtr& object) override;
};

} // namespace Ovidane
