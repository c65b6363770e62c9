// What a host may print about the library it runs: its version and its back ends.
#include <fftw3.h>

#include <string>

#include "interface/ovdinf01.h"

namespace {

// The widest vector instructions the build may use; the image arithmetic is vectorised by
// the compiler for these and no other.
const char* VectorInstructions() {
#if defined(__AVX512F__)
    return "AVX-512";
#elif defined(__AVX2__)
    return "AVX2";
#elif defined(__AVX__)
    return "AVX";
#elif defined(__SSE2__)
    return "SSE2";
#elif defined(__ARM_NEON)
    return "NEON";
#else
    return "scalar";
#endif
}

} // namespace

extern "C" {

OVD_API const char* OVD_CALL ovdGetVersion(void) {
    return OVD_VERSION;
}

OVD_API const char* OVD_CALL ovdGetBackEnds(void) {
    static const std::string text =
        std::string("FFT: ") + fftwf_version +
        " (single precision, the library's worker threads); vectors: " + VectorInstructions() +
        " (compiler-vectorised image math)";
    return text.c_str();
}

} // extern "C"
