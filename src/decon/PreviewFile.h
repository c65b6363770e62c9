#pragma once
#include <string>

#include "image/cOvdImage.h"

namespace Ovidane {

// Preview files are raw float stacks, slice after slice, of the size of the image written.
// Writes from every thread of the process go through one guard, so that two previews that
// share a file name never interleave their slices.

// 0 on success, 1 when a slice could not be written even after reopening the file for
// appending, -1 when the file cannot be opened (a line on the standard error stream says
// which).
int WritePreviewFile(const cFloatImagePtr& image, const std::string& name);

// Fills `image` slice by slice from the file. 0 when the file was opened, -1 when it could
// not be (with a line on the standard error stream). A short file is not detected: what
// was not read keeps the image's former values.
int ReadPreviewFile(const cFloatImagePtr& image, const std::string& name);

} // namespace Ovidane
