#pragma once
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Weights for joining the restored subvolumes of one stack slice. Neighbouring tiles share
// `overlap` columns (or rows); across that strip one tile's weight rises along a raised
// cosine from 0 to 1 while its neighbour's falls from 1 to 0, so the two weights add up
// to 1 at every pixel and the sum of the weighted tiles needs no division. A tile fades
// only towards a neighbour: the outer edges of the stack keep weight 1.
//
// The ramp of length o is w(i) = 0.5 - 0.5 cos(pi i / (o - 1)) for i from 0 to o - 1.
// An overlap of 1 has no ramp: the single shared column gets weight 0.5 from each side.
class cBlendingMaskCreator : public cOvdObject {
public:
    cBlendingMaskCreator();
    ~cBlendingMaskCreator() override;

    // Stores the tile counts, the tile size (x, y; z is ignored) and the overlap, and makes
    // the four edge masks. An axis cut into several tiles must be longer than the overlap.
    void Setup(const cImageDimensions& counts, const cImageDimensions& size, uint32_t overlap);

    // A new image of one tile's size with the weights of tile (ix, iy): the product of its
    // x and y edge masks. Nothing is kept between calls.
    cFloatImagePtr GetMask(uint32_t ix, uint32_t iy) const;

private:
    // The mask that is 1 inside `keep` and rises towards the edge line `edge`, which
    // carries the ramp's 0; `ramp` is the strip outside `keep`.
    cFloatImagePtr MakeMask(const cImageBox& keep, const cImageBox& edge,
                            const cImageBox& ramp) const;
    cFloatImagePtr NewTile(float value) const;

    cFloatImagePtr mLowY;
    cFloatImagePtr mHighY;
    cFloatImagePtr mLowX;
    cFloatImagePtr mHighX;
    cImageDimensions mCounts{1, 1, 1};
    cImageDimensions mSize{1, 1, 1};
    uint32_t mOverlap = 0;
};

} // namespace Ovidane
