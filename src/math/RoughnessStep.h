#pragma once
#include "image/cOvdImage.h"

namespace Ovidane {

// Good's roughness step of `estimate`, written to `out` (same size, another image): every
// interior pixel e of a slice becomes
//   (β · r · Σ r of its neighbours + e) · 1 / (n · β + 1),
// with r the square roots of the estimate raised to 1e-20 first, n = 4 in-plane neighbours
// in the first and last slice (and a plane's only one) and 6 between; then every pixel, the
// slices' borders included, is held at 1e-20 or above. This is what SquareRootImage and
// GoodsRoughnessPenalty of the vector back end give together, bit for bit, in one walk: each
// thread takes the roots of a block of rows slice by slice into scratch, so no image of
// roots is written and read back and each root is taken about once. The result does not
// depend on the thread count.
void GoodsRoughnessStep(const cFloatImage& estimate, const cFloatImage& out, float beta);

} // namespace Ovidane
