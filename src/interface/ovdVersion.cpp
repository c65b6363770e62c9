// What a host may print about the library it runs: its version and its back ends.
#include <fftw3.h>

#include <string>

#include "interface/ovdinf01.h"
#include "math/HighwayKernels.h"

extern "C" {

OVD_API const char* OVD_CALL ovdGetVersion(void) {
    return OVD_VERSION;
}

OVD_API const char* OVD_CALL ovdGetBackEnds(void) {
    static const std::string text =
        std::string("FFT: ") + fftwf_version +
        " (single precision, the library's worker threads); vectors: " +
        Ovidane::HighwayKernels::TargetName() +
        " (Google Highway image math, instruction set chosen at run time)";
    return text.c_str();
}

} // extern "C"
