#include "ResultText.h"

namespace ovdtool {

std::string ResultText(uint16_t code) {
    switch (code) {
    case 0: return "done";
    case 1: return "the run failed or was cancelled; no complete output was written (run with --verbose for details)";
    case 2: return "an argument was refused or a file could not be opened; check the paths, sizes and spacings";
    case 4: return "out of memory";
    case 5: return "the output could not be created, or the temporary directory's disk is too small; free space or choose --temp-dir";
    case 9: return "the input could not be converted to float (is the file shorter than its stated size?)";
    case 13: return "a guard band is larger than 100";
    case 14: return "the overlap is larger than 300";
    case 15: return "the emission wavelength is out of range (give micrometres, e.g. 0.52)";
    case 16: return "refractive index or numerical aperture out of range (NA must stay below the index, NA/n^2 at least 0.2)";
    case 17: return "x/y spacing too large for these optics (more than 10x the lateral resolution)";
    case 18: return "x/y spacing too small for these optics (less than a tenth of the lateral resolution)";
    case 19: return "z spacing too large for these optics (more than 10x the axial resolution)";
    case 20: return "z spacing too small for these optics (less than a tenth of the axial resolution)";
    default: return "unexpected library result " + std::to_string(code);
    }
}

} // namespace ovdtool
