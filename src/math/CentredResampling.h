#pragma once
// Resampling of a PSF onto another grid about its centre. A measured PSF is data: the new
// grid takes what the samples say and nothing else, so the centres of both grids meet, the
// area beyond the last sample stays 0, and no value is made up to bridge a border.
#include "image/cOvdImage.h"

namespace Ovidane {

// Fills `destination`, of its own size, from `source`: each at its spacing (x, y, z), both
// centred at index size/2 on every axis (the pixel that the origin shift moves to 0).
// A destination pixel takes the source's content over its own extent: on a finer grid the
// linear interpolation of the samples times its width, on a coarser one the overlap-weighted
// sum of the samples it covers, both in source pixels, so the sum of the whole scales with
// the ratio of pixel volumes on every grid. A destination of one plane takes the sum of all
// the source's planes. Only the part that lands in the destination is ever computed, and the
// two partial results of the three passes are never larger than the larger of the two images,
// so a source of any spacing costs at most that much beside them.
void ResampleAboutCentre(const cFloatImagePtr& source, const float sourceSpacing[3],
                         const cFloatImagePtr& destination, const float destinationSpacing[3]);

} // namespace Ovidane
