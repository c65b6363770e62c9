#pragma once
#include "math/cFFTPerformancePolicy.h"

namespace Ovidane {

// Takes the library with the lowest performance rating for the size; on equal ratings the
// earlier library in the list keeps the choice.
class cDefaultFFTPerformancePolicy : public cFFTPerformancePolicy {
public:
    // Answered when there is nothing to choose from; no library has this id.
    static constexpr int kNoLibrary = 0;

    int ChooseLibrary(const cImageDimensions& dimensions,
                      const std::vector<cFFTPtr>& libraries) override;
};

} // namespace Ovidane
