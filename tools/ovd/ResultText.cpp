#include "ResultText.h"

namespace ovdtool {
namespace {

std::string CodeText(uint16_t code) {
    switch (code) {
    case 0: return "done";
    case 1: return "the run failed or was cancelled; no complete output was written";
    case 2: return "the library refused the call";
    case 4: return "out of memory";
    case 5: return "the output could not be created, or the temporary directory's disk is too small";
    case 9: return "the input could not be converted to float";
    case 13: return "a guard band is too large";
    case 14: return "the overlap is too large";
    case 15: return "the emission wavelength is out of range (give micrometres, e.g. 0.52)";
    case 16: return "refractive index or numerical aperture out of range (NA must stay below the index, NA/n^2 at least 0.2)";
    case 17: return "x/y spacing too large for these optics (more than 10x the lateral resolution)";
    case 18: return "x/y spacing too small for these optics (less than a tenth of the lateral resolution)";
    case 19: return "z spacing too large for these optics (more than 10x the axial resolution)";
    case 20: return "z spacing too small for these optics (less than a tenth of the axial resolution)";
    default: return "unexpected library result " + std::to_string(code);
    }
}

// The optics and sampling refusals have one cause each, which the text above names in full.
bool CodeNamesItsCause(uint16_t code) { return code >= 15 && code <= 20; }

} // namespace

std::string ResultText(uint16_t code, const char* reason) {
    std::string text = CodeText(code);
    if (code == 0 || CodeNamesItsCause(code))
        return text;
    if (reason && *reason)
        return text + ": " + reason;
    return code == 1 ? text + " (run with --verbose for details)" : text;
}

} // namespace ovdtool
