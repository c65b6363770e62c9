#pragma once
#include "math/cImageMathGeneric.h"

namespace Ovidane {

// The back end that the manager hands out in front of the plain one. It computes what the
// plain back end computes, except where it has a form of its own. So far that is the PSF
// kernel: its pupil phase carries the focus-balancing term, which shifts the reference
// focus against the fourth-order aberration so that an aberrated PSF keeps its brightest
// point in the focal plane. Vector kernels of the element-wise operations belong here too.
class cImageMathVector : public cImageMathGeneric {
public:
    cImageMathVector() : cImageMathGeneric("cImageMathVector", true) {}
};

} // namespace Ovidane
