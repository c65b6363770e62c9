#pragma once
#include "largevolume/cInitialImageSource.h"

namespace Ovidane {

// The input is one slice of the stack, DEC_IPARAMS_SLICE_INDEX. An index outside the
// stack is refused (cException, code 2) before anything is read.
class cSliceInitialImageSource : public cInitialImageSource {
public:
    explicit cSliceInitialImageSource(cCountedPtr<cDeconLog> log);

    void Generate() override;
};

} // namespace Ovidane
