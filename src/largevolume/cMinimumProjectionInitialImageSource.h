#pragma once
#include "largevolume/cInitialImageSource.h"

namespace Ovidane {

// The input is the smallest value along z at each pixel position.
class cMinimumProjectionInitialImageSource : public cInitialImageSource {
public:
    explicit cMinimumProjectionInitialImageSource(cCountedPtr<cDeconLog> log);

    void Generate() override;
};

} // namespace Ovidane
