#pragma once
#include "decon/cKeptBuffer.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Plain copies of an image's pixels, x fastest, that the process keeps from one run to the
// next outside the pixel memory pools (which a run may give back at its end). Lines are
// spread over the worker threads.
namespace KeptPixels {

// pixels = the image's pixels (resized to fit).
void Store(const cFloatImagePtr& image, cKeptBuffer& pixels);
// The image's pixels = pixels, which hold as many.
void Restore(const cKeptBuffer& pixels, const cFloatImagePtr& image);

} // namespace KeptPixels
} // namespace Ovidane
