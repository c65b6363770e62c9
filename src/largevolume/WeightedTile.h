#pragma once
#include <cstdint>

#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Adds a weighted tile into `out` at (x0, y0): out = tile · mask + out, for the w by h
// pixels of every slice of `out`, the tile's read from `origin` on (its first column, row
// and slice). The product is rounded before the sum, as two float operations round them.
// Pixels that no earlier tile covers, x >= freshX and y >= freshY, take the product plus 0
// in place of what `out` held, so `out` needs no clearing first and every bit is as if it
// had been cleared. The mask is one slice of at least w by h. False when a tile pixel it
// took is not a finite number.
bool AddWeightedTile(const cOvdImage<float>& tile, const cImageDimensions& origin,
                     const cOvdImage<float>& mask, const cOvdImage<float>& out, uint32_t w,
                     uint32_t h, uint32_t x0, uint32_t y0, uint32_t freshX, uint32_t freshY);

} // namespace Ovidane
