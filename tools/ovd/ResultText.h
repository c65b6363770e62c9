#pragma once
#include <cstdint>
#include <string>

namespace ovdtool {

// What a library return code means for the person at the command line, with a hint of
// what to do about it.
std::string ResultText(uint16_t code);

} // namespace ovdtool
