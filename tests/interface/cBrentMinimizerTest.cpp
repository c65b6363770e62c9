#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "ScalarObjectives.h"
#include "interface/cBrentMinimizer.h"

using namespace Ovidane;
using Ovidane::testing::cRecordingObjective;

TEST(cBrentMinimizerTest, MinimaAreFoundInsideTheBracket) {
    struct Case {
        const char* what;
        std::function<double(double)> f;
        double a, b, c, tolerance, minimum, within;
        std::size_t maxPoints;
    };
    const Case cases[] = {
        // Convergence leaves x within 2 tol1 of the minimum; a parabola's first parabolic
        // step finds it, the rest closes the interval.
        {"parabola", [](double x) { return (x - 3.0) * (x - 3.0) + 1.0; }, 0.0, 2.0, 5.0, 0.025,
         3.0, 2 * (0.025 * 3.0 + 1e-10), 10},
        {"descending bracket, asymmetric", [](double x) { return std::exp(x) - 2.0 * x; }, 4.0, 1.0,
         -3.0, 1e-6, std::log(2.0), 1e-5, 100},
        // At 0 the absolute term ends the search, not the relative tolerance.
        {"minimum at zero", [](double x) { return x * x; }, -1.0, 0.3, 2.5, 0.025, 0.0, 1e-6, 100},
        // Parabolas fit a kink badly: golden steps must carry it.
        {"kink", [](double x) { return x < 1.5 ? 4.0 * (1.5 - x) : 0.5 * (x - 1.5); }, -4.0, 0.5,
         9.0, 1e-4, 1.5, 4 * (1e-4 * 1.5), 100},
        // The lower end is approached without being evaluated.
        {"increasing", [](double x) { return x; }, 1.0, 2.0, 4.0, 1e-3, 1.0, 0.01, 100},
        {"flat", [](double) { return 7.0; }, -2.0, 1.0, 6.0, 0.025, 1.0, 5.0, 40},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        cRecordingObjective objective(c.f);
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(c.tolerance);
        ASSERT_EQ(brent.Minimize(c.a, c.b, c.c, c.f(c.b)), 0);
        EXPECT_NEAR(brent.GetMinimumPosition(), c.minimum, c.within);
        EXPECT_EQ(brent.GetMinimumValue(), c.f(brent.GetMinimumPosition()));
        EXPECT_LE(objective.points.size(), c.maxPoints);
        // Every point asked for lies strictly inside the current interval.
        for (double x : objective.points) {
            EXPECT_GT(x, std::min(c.a, c.c));
            EXPECT_LT(x, std::max(c.a, c.c));
        }
    }
}

TEST(cBrentMinimizerTest, IterationLimitKeepsTheBestPointAndFailuresEndTheSearch) {
    auto parabola = [](double x) { return (x - 3.0) * (x - 3.0); };
    {
        cRecordingObjective objective(parabola);
        cBrentMinimizer brent(&objective);
        brent.SetIterationLimit(0);
        EXPECT_EQ(brent.Minimize(0.0, 2.0, 5.0, 1.0), 1);
        EXPECT_TRUE(objective.points.empty());
        EXPECT_EQ(brent.GetMinimumPosition(), 2.0);
        EXPECT_EQ(brent.GetMinimumValue(), 1.0);
    }
    {
        cRecordingObjective objective(parabola);
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(1e-9);
        brent.SetIterationLimit(3);
        EXPECT_EQ(brent.Minimize(0.0, 2.0, 5.0, 1.0), 1);
        ASSERT_EQ(objective.points.size(), 3u);
        // The stored point is the best of those seen, and better than the start.
        double best = 1.0;
        for (double x : objective.points)
            best = std::min(best, parabola(x));
        EXPECT_EQ(brent.GetMinimumValue(), best);
        EXPECT_LT(best, 1.0);
    }
    // A failed evaluation ends the search with its code; a cancel passes through.
    {
        cRecordingObjective objective(parabola);
        objective.failAt = 2;
        objective.failCode = 9;
        cBrentMinimizer brent(&objective);
        EXPECT_EQ(brent.Minimize(0.0, 2.0, 5.0, 1.0), 9);
        EXPECT_EQ(objective.points.size(), 2u);
    }
    cRecordingObjective objective([](double x) { return x * x; });
    objective.throwAt = 3;
    cBrentMinimizer brent(&objective);
    EXPECT_THROW(brent.Minimize(-1.0, 0.3, 2.0, 0.09), cCancelException);
    EXPECT_EQ(objective.points.size(), 3u);
}
