#pragma once
#include "largevolume/cInitialImageSource.h"

namespace Ovidane {

// The whole stack is the input: the log and the files stay as they are.
class cVolumeInitialImageSource : public cInitialImageSource {
public:
    explicit cVolumeInitialImageSource(cCountedPtr<cDeconLog> log);

    void Generate() override;
};

} // namespace Ovidane
