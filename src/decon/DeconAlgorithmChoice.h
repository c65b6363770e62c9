#pragma once
// Which restoration a log asks for: one place that maps DEC_FPARAMS_DECON_METHOD to an
// algorithm and says what the method holds in memory.
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "decon/cDeconAlgorithm.h"

namespace Ovidane {

// The algorithm for the log's method: ML-EM for DEC_FLAG_DM_EXPECTATION_MAX,
// DEC_FLAG_DM_POWER_ACCEL and DEC_FLAG_DM_EXTRAPOLATION_ACCEL (the acceleration itself
// follows DEC_BPARAMS_VECTOR_EXTRAPOLATION), Gold's method for DEC_FLAG_DM_GOLDS, and the
// inverse filter for a log that names no method, as the runs of the five operations do.
cDeconAlgorithmPtr MakeDeconAlgorithm(const cCountedPtr<cDeconLog>& log);

// The images of the subvolume's size that the log's method holds at its peak beyond those
// of the inverse filter, so that a cut under a memory budget leaves room for them.
uint32_t ExtraWorkingImages(const cDeconParameter& parameters);

} // namespace Ovidane
