#pragma once
// Which restoration a run asks for: one place that maps the log's method, or a plane method
// that no log key names, to an algorithm and says what the method holds in memory.
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "decon/cDeconAlgorithm.h"

namespace Ovidane {

// The plane methods have no value of DEC_FPARAMS_DECON_METHOD: the caller names them.
enum class cRestorationKind {
    ByLogMethod, // DEC_FPARAMS_DECON_METHOD decides
    Plane,       // ML-EM of single planes with a known PSF
    BlindPlane,  // ML-EM of single planes that estimates the PSF as well, in plain steps
};

// The algorithm for the kind. By the log's method: ML-EM for DEC_FLAG_DM_EXPECTATION_MAX,
// DEC_FLAG_DM_POWER_ACCEL and DEC_FLAG_DM_EXTRAPOLATION_ACCEL (the acceleration itself
// follows DEC_BPARAMS_VECTOR_EXTRAPOLATION), Gold's method for DEC_FLAG_DM_GOLDS, and the
// inverse filter for a log that names no method, as the runs of the five operations do.
cDeconAlgorithmPtr MakeDeconAlgorithm(const cCountedPtr<cDeconLog>& log,
                                      cRestorationKind kind = cRestorationKind::ByLogMethod);

// The images of the subvolume's size that the method holds at its peak beyond those of the
// inverse filter, so that a cut under a memory budget leaves room for them.
uint32_t ExtraWorkingImages(const cDeconParameter& parameters,
                            cRestorationKind kind = cRestorationKind::ByLogMethod);

} // namespace Ovidane
