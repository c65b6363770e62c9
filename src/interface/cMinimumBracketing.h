#pragma once
#include <cstdint>

#include "interface/cScalarObjective.h"

namespace Ovidane {

// Widens two starting points into a triple a, b, c whose middle value lies below both
// ends, walking downhill with growing steps and parabolic extrapolation. The objective is
// not owned.
class cMinimumBracketing {
public:
    explicit cMinimumBracketing(cScalarObjective* objective) : objective(objective) {}

    // Only a positive factor replaces the current one.
    void SetGrowthFactor(double factor) {
        if (factor > 0.0)
            growthFactor = factor;
    }
    double GetGrowthFactor() const { return growthFactor; }

    // 0 when a, b, c, fa, fb, fc hold a bracket; otherwise the code of the evaluation
    // that failed, and the fields are incomplete.
    int32_t Bracket(double a, double b);

    double fa = 0.0, fb = 0.0, fc = 0.0;
    double a = 0.0, b = 0.0, c = 0.0;

private:
    cScalarObjective* objective;
    double growthFactor = 1.618034;
    // A parabolic step may reach at most this many times the last step (c - b) beyond c.
    double parabolaLimit = 5.0;
    // Keeps the parabola's vertex finite when the three points are nearly collinear.
    double smallestDenominator = 1e-10;
};

} // namespace Ovidane
