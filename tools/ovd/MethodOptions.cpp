#include "MethodOptions.h"

#include <cmath>

#include "TiffStack.h"

namespace ovdtool {

void AddMethodOptions(CLI::App* command, MethodOptions& o) {
    command->add_option("--method", o.method,
                        "wiener (one pass, fast), mlem (maximum likelihood, best on faint data), gold; "
                        "for a single plane also mlem2d and blind (estimates the PSF too; --save-psf "
                        "writes the estimate)")
        ->check(CLI::IsMember({"wiener", "mlem", "gold", "mlem2d", "blind"}))
        ->capture_default_str();
    command->add_option("--iterations,--iter", o.iterations, "passes of the iterative methods (default 30; 20 for blind)")
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
    command->add_option("--object-updates", o.objectUpdates,
                        "mlem2d and blind: object updates a pass (default 1; 2 for blind)")
        ->check(CLI::Range(1, OVD_MAX_UPDATES));
    command->add_option("--psf-updates", o.psfUpdates, "blind: PSF updates a pass (default 1)")
        ->check(CLI::Range(1, OVD_MAX_UPDATES));
}

ovdStructIterativeOps IterativeOptionsOf(const MethodOptions& o) {
    ovdStructIterativeOps ops{};
    ovdInitStructIterativeOps(&ops);
    ops.nMethod = o.method == "mlem"     ? OVD_METHOD_MLEM
                  : o.method == "gold"   ? OVD_METHOD_GOLD
                  : o.method == "mlem2d" ? OVD_METHOD_MLEM_2D
                  : o.method == "blind"  ? OVD_METHOD_BLIND_2D
                                         : OVD_METHOD_INVERSE_FILTER;
    ops.nObjectUpdates = uint16_t(o.objectUpdates);
    ops.nPsfUpdates = uint16_t(o.psfUpdates);
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
