#pragma once
// Which theoretical PSF a command computes: the specified model or the exact scalar one,
// with the sample the exact one takes, as flags and as the library's model record.
#include <CLI/CLI.hpp>

#include <string>

#include "interface/ovdinf01.h"

namespace ovdtool {

struct PsfModelOptions {
    std::string model = "specified";
    double sampleIndex = 0.0; // 0: that of the immersion medium
    double depth = 0.0;       // micrometres below the coverslip
};

void AddPsfModelOptions(CLI::App* command, PsfModelOptions& options);

// The record for the library; throws StackError for a value it would refuse.
ovdStructPsfModel PsfModelOf(const PsfModelOptions& options);

} // namespace ovdtool
