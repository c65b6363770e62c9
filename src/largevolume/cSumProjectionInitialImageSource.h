#pragma once
#include "largevolume/cInitialImageSource.h"

namespace Ovidane {

// The input is the sum along z at each pixel position.
class cSumProjectionInitialImageSource : public cInitialImageSource {
public:
    explicit cSumProjectionInitialImageSource(cCountedPtr<cDeconLog> log);

    void Generate() override;
};

} // namespace Ovidane
