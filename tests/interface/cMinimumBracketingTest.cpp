#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "ScalarObjectives.h"
#include "interface/cMinimumBracketing.h"

using namespace Ovidane;
using Ovidane::testing::cRecordingObjective;

namespace {

// The triple must enclose the minimiser with a middle value below the left end and not
// above the right, and its values must be the function's at its points.
void ExpectBracketOf(const cMinimumBracketing& br, const cRecordingObjective& objective,
                     double minimiser) {
    EXPECT_LT(std::min(br.a, br.c), minimiser);
    EXPECT_GT(std::max(br.a, br.c), minimiser);
    EXPECT_TRUE((br.a < br.b && br.b < br.c) || (br.c < br.b && br.b < br.a));
    EXPECT_LT(br.fb, br.fa);
    EXPECT_LE(br.fb, br.fc);
    EXPECT_DOUBLE_EQ(br.fa, objective.f(br.a));
    EXPECT_DOUBLE_EQ(br.fb, objective.f(br.b));
    EXPECT_DOUBLE_EQ(br.fc, objective.f(br.c));
}

} // namespace

TEST(cMinimumBracketingTest, EnclosesMinimumFromEitherDirection) {
    auto parabola = [](double x) { return (x - 3.0) * (x - 3.0) + 1.0; };
    {
        // Downhill from the start: the golden growth reaches past 3 in one step.
        cRecordingObjective objective(parabola);
        cMinimumBracketing br(&objective);
        ASSERT_EQ(br.Bracket(0.0, 1.0), 0);
        ExpectBracketOf(br, objective, 3.0);
    }
    {
        // Uphill start: the points are swapped so that the walk leads down, to the left.
        cRecordingObjective objective([](double x) { return (x + 7.0) * (x + 7.0); });
        cMinimumBracketing br(&objective);
        ASSERT_EQ(br.Bracket(0.0, 1.0), 0);
        ExpectBracketOf(br, objective, -7.0);
        EXPECT_GT(br.a, br.c);
        // The swap made b the first point, so c = 0 + 1.618034 * (0 - 1).
        EXPECT_DOUBLE_EQ(objective.points[2], -1.618034);
    }
}

TEST(cMinimumBracketingTest, FarMinimumIsReachedWithGrowingSteps) {
    // An asymmetric valley far away: steep on the left, shallow on the right.
    auto valley = [](double x) { return x < 40.0 ? 5.0 * (40.0 - x) : 0.2 * (x - 40.0); };
    cRecordingObjective objective(valley);
    cMinimumBracketing br(&objective);
    br.SetGrowthFactor(2.0);
    br.SetGrowthFactor(0.0); // refused: only positive factors replace the current one
    EXPECT_EQ(br.GetGrowthFactor(), 2.0);
    ASSERT_EQ(br.Bracket(0.0, 1.0), 0);
    ExpectBracketOf(br, objective, 40.0);
    // Doubling steps: a walk to 40 takes a handful of evaluations, not tens.
    EXPECT_LE(objective.points.size(), 12u);
    // A parabolic step never reaches further than five last steps beyond c.
    for (size_t i = 1; i < objective.points.size(); ++i)
        EXPECT_LT(objective.points[i], 40.0 * 6.0);
}

TEST(cMinimumBracketingTest, FailedEvaluationEndsTheWalkAndCancelPassesThrough) {
    auto descent = [](double x) { return -x; }; // never bracketed: only a failure stops it
    for (int failAt : {1, 2, 3, 6}) {
        cRecordingObjective objective(descent);
        objective.failAt = failAt;
        objective.failCode = 200;
        cMinimumBracketing br(&objective);
        EXPECT_EQ(br.Bracket(0.0, 1.0), 200) << "failing evaluation " << failAt;
        EXPECT_EQ(objective.points.size(), static_cast<size_t>(failAt));
    }
    cRecordingObjective objective(descent);
    objective.throwAt = 4;
    cMinimumBracketing br(&objective);
    EXPECT_THROW(br.Bracket(0.0, 1.0), cCancelException);
    EXPECT_EQ(objective.points.size(), 4u);
}
