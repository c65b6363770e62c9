#pragma once
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "core/cCancelException.h"
#include "interface/cScalarObjective.h"

namespace Ovidane::testing {

// A one-dimensional objective from a plain function that records every point asked for.
// It can fail (error code) or be cancelled (throw) at a chosen evaluation, counted from 1.
class cRecordingObjective : public cScalarObjective {
public:
    explicit cRecordingObjective(std::function<double(double)> f) : f(std::move(f)) {}

    double EvaluateFigureOfMerit(double x, int32_t& error) override {
        points.push_back(x);
        const int n = static_cast<int>(points.size());
        if (n == throwAt)
            throw cCancelException();
        if (n == failAt) {
            error = failCode;
            return 0.0;
        }
        error = 0;
        return f(x);
    }

    std::function<double(double)> f;
    std::vector<double> points;
    int failAt = 0;
    int32_t failCode = 0;
    int throwAt = 0;
};

} // namespace Ovidane::testing
