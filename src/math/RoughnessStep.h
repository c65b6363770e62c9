#pragma once
#include "image/cOvdImage.h"

namespace Ovidane {

// Good's roughness step of `estimate`, written to `out` (same size, another image): every
// interior pixel e of a slice becomes
//   (β · r · Σ r of its neighbours + e) / (n · β + 1), held at 1e-20 or above,
// with r the square roots of the estimate (0 where it is not positive), n = 4 in-plane
// neighbours in the first and last slice (and a plane's only one) and 6 between; a slice's
// border pixels keep their value. This is what SquareRootImage and GoodsRoughnessPenalty of
// the plain back end give together, bit for bit, in one walk: each thread takes the roots of
// a block of rows slice by slice into scratch, so no image of roots is written and read back
// and each root is taken about once. The result does not depend on the thread count.
void GoodsRoughnessStep(const cFloatImage& estimate, const cFloatImage& out, float beta);

} // namespace Ovidane
