#pragma once
#include <cstdint>
#include <string>

namespace ovdtool {

// What a library return code means for the person at the command line, with a hint of
// what to do about it, followed by the library's own reason for the failure where the code
// alone can't name the cause (a run that failed, a disk, a conversion, a cut).
std::string ResultText(uint16_t code, const char* reason = nullptr);

} // namespace ovdtool
