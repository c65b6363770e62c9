#pragma once
#include <cstdint>

namespace Ovidane {

// A function of one real variable that a one-dimensional search minimises. An evaluation
// that cannot produce a value says so through `error` (0 when the value is good); the
// search then stops and reports that code. Exceptions are not caught by the searches and
// leave them unchanged.
class cScalarObjective {
public:
    virtual ~cScalarObjective() = default;
    virtual double EvaluateFigureOfMerit(double x, int32_t& error) = 0;
};

} // namespace Ovidane
