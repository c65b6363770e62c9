#include "math/cFFTPerformancePolicy.h"

namespace Ovidane {

cFFTPerformancePolicy::~cFFTPerformancePolicy() = default;

} // namespace Ovidane
