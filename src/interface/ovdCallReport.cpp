#include "interface/ovdCallReport.h"

#include "interface/ovdinf01.h"

namespace Ovidane {

const char* ovdResultMeaning(uint16_t code) {
    switch (code) {
    case OVD_RESULT_SUCCESS:
        return "";
    case OVD_RESULT_RUN_FAILED:
        return "the run failed or was cancelled";
    case OVD_RESULT_INVALID_ARGUMENT:
        return "an argument or record was refused, or a named file could not be opened";
    case OVD_RESULT_OUT_OF_MEMORY:
        return "out of memory";
    case OVD_RESULT_CANNOT_CREATE_FILE:
        return "an output file could not be created, or the temporary directory's disk is too "
               "small";
    case OVD_RESULT_CONVERSION_FAILED:
        return "the input could not be converted to float, or its pixel type is unknown";
    case OVD_RESULT_GUARD_BAND_TOO_LARGE:
        return "a guard band is too large";
    case OVD_RESULT_OVERLAP_TOO_LARGE:
        return "the overlap is too large";
    case OVD_RESULT_WAVELENGTH_OUT_OF_RANGE:
        return "the emission wavelength is out of range";
    case OVD_RESULT_OPTICS_OUT_OF_RANGE:
        return "refractive index or numerical aperture out of range, or their ratio too small";
    case OVD_RESULT_XY_SPACING_TOO_LARGE:
        return "the x or y spacing is too large for the optics";
    case OVD_RESULT_XY_SPACING_TOO_SMALL:
        return "the x or y spacing is too small for the optics";
    case OVD_RESULT_Z_SPACING_TOO_LARGE:
        return "the z spacing is too large for the optics";
    case OVD_RESULT_Z_SPACING_TOO_SMALL:
        return "the z spacing is too small for the optics";
    default:
        return "the call failed";
    }
}

} // namespace Ovidane
