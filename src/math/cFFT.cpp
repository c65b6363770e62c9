#include "math/cFFT.h"

namespace Ovidane {

// Out of line so that the table of functions has one home.
cFFT::~cFFT() = default;

} // namespace Ovidane
