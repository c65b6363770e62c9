#pragma once
#include <cstdint>

#include "interface/cScalarObjective.h"

namespace Ovidane {

// Brent's one-dimensional minimisation: parabolic steps through the three best points
// where they are safe, golden-section steps where they are not. Starts from a bracket whose
// middle point lies below both ends. The objective is not owned.
class cBrentMinimizer {
public:
    explicit cBrentMinimizer(cScalarObjective* objective) : objective(objective) {}

    // Relative tolerance on the position; only a positive value replaces the current one.
    void SetTolerance(double value) {
        if (value > 0.0)
            tolerance = value;
    }
    double GetTolerance() const { return tolerance; }
    void SetIterationLimit(int32_t limit) { iterationLimit = limit; }

    // 0 on convergence, 1 when the iteration limit was reached first (the best point so
    // far is still stored), or the code of a failed evaluation.
    int32_t Minimize(double ax, double bx, double cx, double fbx);

    double GetMinimumPosition() const { return minimumPosition; }
    double GetMinimumValue() const { return minimumValue; }

private:
    double tolerance = 0.001;
    double minimumPosition = 0.0;
    double minimumValue = 0.0;
    int32_t iterationLimit = 500;
    cScalarObjective* objective;
    // Added to the relative tolerance so that a minimum at 0 still converges.
    double absoluteTerm = 1e-10;
    // 1 - 1/golden ratio: the fraction of the larger interval that a golden step covers.
    double goldenFraction = 0.381966;
};

} // namespace Ovidane
