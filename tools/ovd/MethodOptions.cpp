#include "MethodOptions.h"

#include <cmath>

#include "TiffStack.h"

namespace ovdtool {

void AddMethodOptions(CLI::App* command, MethodOptions& o) {
    command->add_option("--method", o.method,
                        "wiener (one pass, fast), mlem (maximum likelihood, best on faint data) or gold")
        ->check(CLI::IsMember({"wiener", "mlem", "gold"}))
        ->capture_default_str();
    command->add_option("--iterations,--iter", o.iterations, "passes of mlem or gold (default 30)")
        ->check(CLI::Range(1, OVD_MAX_ITERATIONS));
    command->add_option("--acceleration", o.acceleration, "mlem: extrapolation or line (line search)")
        ->check(CLI::IsMember({"extrapolation", "line"}))
        ->capture_default_str();
    command->add_option("--roughness", o.roughness,
                        "mlem: Good's roughness factor, 0 (none) to 1000 (default 0.5)")
        ->check(CLI::Range(0.0, 1000.0));
    command->add_option("--start", o.start, "first estimate of mlem or gold: data, wiener or flat")
        ->check(CLI::IsMember({"data", "wiener", "flat"}))
        ->capture_default_str();
}

ovdStructIterativeOps IterativeOptionsOf(const MethodOptions& o) {
    ovdStructIterativeOps ops{};
    ovdInitStructIterativeOps(&ops);
    ops.nMethod = o.method == "mlem"   ? OVD_METHOD_MLEM
                  : o.method == "gold" ? OVD_METHOD_GOLD
                                       : OVD_METHOD_INVERSE_FILTER;
    if (o.iterations > 0)
        ops.nIterations = o.iterations;
    ops.nAcceleration =
        o.acceleration == "line" ? OVD_ACCELERATION_LINE_SEARCH : OVD_ACCELERATION_EXTRAPOLATION;
    // CLI's range check lets NaN through; the record must never see one.
    if (std::isnan(o.roughness))
        throw StackError("--roughness must be a number from 0 to 1000");
    if (o.roughness >= 0.0)
        ops.fRoughness = float(o.roughness);
    ops.nStart = o.start == "wiener" ? OVD_START_INVERSE_FILTER
                 : o.start == "flat" ? OVD_START_FLAT
                                     : OVD_START_DATA;
    return ops;
}

} // namespace ovdtool
