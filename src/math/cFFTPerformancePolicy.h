#pragma once
#include <vector>

#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "math/cFFT.h"

namespace Ovidane {

// Decides which transform library serves a new image size.
class cFFTPerformancePolicy : public cOvdObject {
public:
    ~cFFTPerformancePolicy() override;

    // The library id of the library to use for `dimensions`, chosen among `libraries`;
    // an id that no library has means that none can serve.
    virtual int ChooseLibrary(const cImageDimensions& dimensions,
                              const std::vector<cFFTPtr>& libraries) = 0;
};

} // namespace Ovidane
