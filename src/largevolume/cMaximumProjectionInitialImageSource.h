#pragma once
#include "largevolume/cInitialImageSource.h"

namespace Ovidane {

// The input is the largest value along z at each pixel position. The projection starts
// from 0, so a position that is negative in every slice gives 0.
class cMaximumProjectionInitialImageSource : public cInitialImageSource {
public:
    explicit cMaximumProjectionInitialImageSource(cCountedPtr<cDeconLog> log);

    void Generate() override;
};

} // namespace Ovidane
