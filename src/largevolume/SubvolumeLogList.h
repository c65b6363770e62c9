#pragma once
#include "core/DeconKeys.h"
#include "core/cCountedArray.h"
#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cImageDimensions.h"

namespace Ovidane {

// One log per subvolume, in cutting order (x fastest, then y, then z). Each describes a
// complete small run: its input file, its result file, its size and its place in the stack.
// The cut fills the list, each subvolume's algorithm updates its own log, and the blending
// reads them back.
using cSubvolumeLogList = cCountedArray<cCountedPtr<cDeconLog>>;

// The padded size that every subvolume of a cut shares; 0 x 0 x 0 without subvolumes.
inline cImageDimensions PaddedSizeOf(const cSubvolumeLogList& logs) {
    if (!logs || logs->empty())
        return cImageDimensions{0, 0, 0};
    const cDeconParameter& p = (*logs)[0]->GetParameters();
    return cImageDimensions{static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)),
                            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT)),
                            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH))};
}

} // namespace Ovidane
