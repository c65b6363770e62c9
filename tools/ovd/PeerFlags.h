#pragma once
// Options that people bring from other deconvolution tools and that ovd doesn't take as
// such: each is answered with what to type instead, not with a bare "not expected".
#include <CLI/CLI.hpp>

namespace ovdtool {

// Adds the hidden options of `restore`; a value after one (`--bg 100`) is taken with it.
void AddPeerFlagHints(CLI::App* command);

} // namespace ovdtool
