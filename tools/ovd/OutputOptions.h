#pragma once
// Where a command writes its stack, and whether it may replace a file that is there.
#include <CLI/CLI.hpp>

#include <string>

namespace ovdtool {

struct OutputOptions {
    std::string path;
    bool overwrite = false;
};

// OUT (also as -o/--out) and --overwrite. `required` is false where a default name exists.
void AddOutputOptions(CLI::App* command, OutputOptions& options, const std::string& description,
                      bool required);

} // namespace ovdtool
