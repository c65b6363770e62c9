#pragma once
#include "decon/cObjectFirstGuess.h"

namespace Ovidane {

// Starts the restoration from a featureless object of the data's mean brightness, so that
// every structure of the result comes from the passes and none from the noise of the data.
class cFlatSheetImageObjectFirstGuess : public cObjectFirstGuess {
public:
    cFlatSheetImageObjectFirstGuess();

    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original, cFloatImagePtr& object) override;
};

} // namespace Ovidane
