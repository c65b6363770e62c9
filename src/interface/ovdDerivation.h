#pragma once
// From what a host passed to what the run driver takes. Both call forms end in the same
// ovdRunArguments; validation has already accepted the input.
#include "interface/ovdRunInverseFilter.h"
#include "interface/ovdinf01.h"

namespace Ovidane {

// The record form: pixel type recoded to the argument-list order, flags to 0 or 1, the
// noise factor to a level, PSF names resolved; a null psfIn passes zeros.
ovdRunArguments ovdDeriveFromRecords(const ovdStructInvFilterImage& image,
                                     const ovdStructInvFilterPsf* psfIn,
                                     const ovdStructInvFilterPsf* psfOut,
                                     const ovdStructInvFilterOpsStd& stdOptions,
                                     const ovdStructInvFilterOpsExp& expOptions);

// The noise level that a record's noise factor selects, compared in single precision:
// 0 (automatic) below one single-precision step, 1 to 3 for the three class values,
// 4 for any other value, which then is the regularisation level itself.
uint16_t ovdNoiseLevelOfFactor(float noiseFactor);

// The six values a successful run reports about the saved PSF, and where the driver puts
// them while it runs.
struct ovdSavedPsfGeometry {
    int16_t width = 0, height = 0, depth = 0;
    float xSpacing = 0, ySpacing = 0, zSpacing = 0;

    void PointDriverAt(ovdRunArguments& arguments);
    // Into the output record, as a successful record-form run reports it.
    void CopyInto(ovdStructInvFilterPsf& record) const;
};

} // namespace Ovidane
