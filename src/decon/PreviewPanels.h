#pragma once
#include <cstdint>
#include <string>

#include "core/cDeconLog.h"
#include "image/cOvdImage.h"

// The drawing that the preview classes share. A panel preview is one float image that shows
// the whole stack: the maximum projection along z in a large panel at the top left, the
// projection along y in a strip below it, the projection along x in a strip on its right,
// with a one-pixel divider line between panel and strips. For an interior depth d and a
// stack of W by H pixels the caller makes it W + d + 1 by H + d + 1 pixels.
namespace Ovidane::PreviewPanels {

// Draws the interior of the subvolume `image` (its guard bands stripped) at its place in
// the stack, as the subvolume keys of `log` tell. With a positive `dividerFactor` the
// dividers are drawn, at that factor times the log's image maximum, on the first pass.
// Transmitted-light previews are kept inverted for display: dark structures show dark.
void Draw(const cDeconLog& log, const cFloatImagePtr& preview, const cFloatImagePtr& image,
          float dividerFactor);

// Maps every pixel p of the preview to a + b - p, a and b its largest and smallest values,
// and anything below the guard value to it. Applied twice it gives the image back.
void InvertForDisplay(const cFloatImagePtr& preview);

// The name of the file that an update writes: the base, "_I" and the iteration. The first
// file a preview object writes carries the iteration as it is; later ones the iteration
// plus 1, the number of the pass that has just ended.
std::string UpdateFileName(const std::string& base, int32_t iteration, bool written);

// Writes `preview` under UpdateFileName and marks `written`. A file that cannot be written
// is left behind without stopping the run.
void WriteUpdateFile(const cFloatImagePtr& preview, const std::string& base, int32_t iteration,
                     bool& written);

// Draws the middle of a PSF that stands in wrap-around order (its centre at pixel (0, 0, 0))
// into `preview`, centre in the middle: the four corners of plane 0, each hx + 1 by hy + 1
// pixels where they meet the far edges, are brought together and shifted by half the size.
void DrawPsfMiddle(const cFloatImagePtr& preview, const cFloatImagePtr& psf);

} // namespace Ovidane::PreviewPanels
