#pragma once
// How `ovd restore` restores: the method and its tuning, as flags and as the library's
// iterative options record.
#include <CLI/CLI.hpp>

#include <string>

#include "interface/ovdinf01.h"

namespace ovdtool {

struct MethodOptions {
    std::string method = "wiener";
    int iterations = 0; // 0: the library's default
    std::string acceleration = "extrapolation";
    double roughness = -1.0; // below 0: the library's default
    std::string start = "data";
    int objectUpdates = 0; // 0: the library's default
    int psfUpdates = 0;
};

void AddMethodOptions(CLI::App* command, MethodOptions& options);

// The record for ovd3dRestore; throws StackError for a value the library would refuse.
ovdStructIterativeOps IterativeOptionsOf(const MethodOptions& options);

} // namespace ovdtool
