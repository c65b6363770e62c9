#pragma once
#include "core/cCountedArray.h"
#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"

namespace Ovidane {

// One log per subvolume, in cutting order (x fastest, then y, then z). Each describes a
// complete small run: its input file, its result file, its size and its place in the stack.
// The cut fills the list, each subvolume's algorithm updates its own log, and the blending
// reads them back.
using cSubvolumeLogList = cCountedArray<cCountedPtr<cDeconLog>>;

} // namespace Ovidane
