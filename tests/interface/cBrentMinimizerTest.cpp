#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "ScalarObjectives.h"
#include "core/cCancelException.h"
#include "interface/cBrentMinimizer.h"

using namespace Ovidane;
using Ovidane::testing::cRecordingObjective;

namespace {

// Every point Brent's method asks for lies strictly inside its current interval, hence
// inside the starting bracket.
void ExpectInside(const cRecordingObjective& objective, double lo, double hi) {
    for (double x : objective.points) {
        EXPECT_GT(x, lo);
        EXPECT_LT(x, hi);
    }
}

} // namespace

TEST(cBrentMinimizerTest, SmoothMinimaConvergeWithinTolerance) {
    {
        cRecordingObjective objective([](double x) { return (x - 3.0) * (x - 3.0) + 1.0; });
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(0.025);
        ASSERT_EQ(brent.Minimize(0.0, 2.0, 5.0, objective.f(2.0)), 0);
        // Convergence means the interval around x is within 2 tol1 on each side.
        EXPECT_NEAR(brent.GetMinimumPosition(), 3.0, 2 * (0.025 * 3.0 + 1e-10));
        EXPECT_NEAR(brent.GetMinimumValue(), objective.f(brent.GetMinimumPosition()), 1e-15);
        EXPECT_NEAR(brent.GetMinimumValue(), 1.0, 0.03);
        // A parabola is found by the first parabolic step; the rest is closing the interval.
        EXPECT_LE(objective.points.size(), 10u);
        ExpectInside(objective, 0.0, 5.0);
    }
    {
        // Bracket given in descending order, asymmetric smooth function, minimum at ln 2.
        cRecordingObjective objective([](double x) { return std::exp(x) - 2.0 * x; });
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(1e-6);
        ASSERT_EQ(brent.Minimize(4.0, 1.0, -3.0, objective.f(1.0)), 0);
        EXPECT_NEAR(brent.GetMinimumPosition(), std::log(2.0), 1e-5);
        ExpectInside(objective, -3.0, 4.0);
    }
    {
        // A minimum at 0 converges through the absolute term, not the relative tolerance.
        cRecordingObjective objective([](double x) { return x * x; });
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(0.025);
        ASSERT_EQ(brent.Minimize(-1.0, 0.3, 2.5, 0.09), 0);
        EXPECT_NEAR(brent.GetMinimumPosition(), 0.0, 1e-6);
    }
}

TEST(cBrentMinimizerTest, KinkedAndBoundaryMinimaAreFoundByGoldenSteps) {
    {
        // A kink with different slopes: parabolas fit badly, golden steps must carry it.
        cRecordingObjective objective(
            [](double x) { return x < 1.5 ? 4.0 * (1.5 - x) : 0.5 * (x - 1.5); });
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(1e-4);
        ASSERT_EQ(brent.Minimize(-4.0, 0.5, 9.0, objective.f(0.5)), 0);
        EXPECT_NEAR(brent.GetMinimumPosition(), 1.5, 4 * (1e-4 * 1.5));
        ExpectInside(objective, -4.0, 9.0);
    }
    {
        // Increasing throughout: the minimum sits at the bracket's lower end, which the
        // method approaches without ever evaluating it.
        cRecordingObjective objective([](double x) { return x; });
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(1e-3);
        ASSERT_EQ(brent.Minimize(1.0, 2.0, 4.0, 2.0), 0);
        EXPECT_NEAR(brent.GetMinimumPosition(), 1.0, 0.01);
        ExpectInside(objective, 1.0, 4.0);
    }
    {
        // Flat: every point is as good as the best, the interval shrinks and it converges.
        cRecordingObjective objective([](double) { return 7.0; });
        cBrentMinimizer brent(&objective);
        brent.SetTolerance(0.025);
        ASSERT_EQ(brent.Minimize(-2.0, 1.0, 6.0, 7.0), 0);
        EXPECT_EQ(brent.GetMinimumValue(), 7.0);
        EXPECT_LT(objective.points.size(), 40u);
        ExpectInside(objective, -2.0, 6.0);
    }
}

TEST(cBrentMinimizerTest, IterationLimitKeepsBestPointSoFar) {
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
        brent.SetTolerance(-1.0); // refused: the tolerance stays
        EXPECT_EQ(brent.GetTolerance(), 1e-9);
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
}

TEST(cBrentMinimizerTest, FailedEvaluationStopsAndCancelPropagates) {
    auto parabola = [](double x) { return (x - 3.0) * (x - 3.0); };
    {
        cRecordingObjective objective(parabola);
        objective.failAt = 2;
        objective.failCode = 9;
        cBrentMinimizer brent(&objective);
        EXPECT_EQ(brent.Minimize(0.0, 2.0, 5.0, 1.0), 9);
        EXPECT_EQ(objective.points.size(), 2u);
    }
    {
        struct Cancelling : cScalarObjective {
            int calls = 0;
            double EvaluateFigureOfMerit(double x, int32_t& error) override {
                error = 0;
                if (++calls == 3)
                    throw cCancelException();
                return x * x;
            }
        } objective;
        cBrentMinimizer brent(&objective);
        try {
            brent.Minimize(-1.0, 0.3, 2.0, 0.09);
            FAIL() << "the cancel did not leave Minimize";
        } catch (const cException& cancel) {
            EXPECT_EQ(cancel.GetCode(), OVD_ERR_CANCEL);
        }
        EXPECT_EQ(objective.calls, 3);
    }
}
