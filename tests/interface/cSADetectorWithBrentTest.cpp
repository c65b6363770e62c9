#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>
#include <vector>

#include "core/DeconKeys.h"
#include "core/cException.h"
#include "interface/cSADetectorWithBrent.h"
#include "support/StatusHost.h"

using namespace Ovidane;
using OvidaneTest::StatusHost;

namespace {

// A figure of merit from a plain function of the aberration that the shared log holds.
class cFunctionFigure : public cAberrationFigureOfMerit {
public:
    cFunctionFigure(cCountedPtr<cDeconLog> log, std::function<double(double)> f)
        : log(log), f(std::move(f)) {}

    int32_t Prepare() override {
        ++prepared;
        return prepareCode;
    }
    int32_t Evaluate() override {
        const double x = log->GetParameters().GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION);
        seen.push_back(x);
        if (static_cast<int>(seen.size()) == throwAt)
            throw std::runtime_error("restoration failed");
        if (static_cast<int>(seen.size()) == failAt)
            return 4;
        value = f(x);
        return 0;
    }
    double GetResult() const override { return value; }

    cCountedPtr<cDeconLog> log;
    std::function<double(double)> f;
    std::vector<double> seen;
    int prepared = 0;
    int32_t prepareCode = 0;
    int failAt = 0;
    int throwAt = 0;
    double value = 0.0;
};

// The detector on a stand-in figure of merit; the figure stays reachable for inspection.
class cDetectorOnFunction : public cSADetectorWithBrent {
public:
    explicit cDetectorOnFunction(std::function<double(double)> f,
                                 cCountedPtr<cDeconLog> log = new cDeconLog())
        : cSADetectorWithBrent(log), figure(new cFunctionFigure(log, std::move(f))) {}
    cCountedPtr<cFunctionFigure> figure;

protected:
    cCountedPtr<cAberrationFigureOfMerit> MakeFigureOfMerit(cCountedPtr<cDeconLog>) override {
        return figure;
    }
};

std::function<double(double)> ValleyAt(double minimiser) {
    return [minimiser](double x) { return 1.0 + (x - minimiser) * (x - minimiser); };
}

} // namespace

TEST(cSADetectorWithBrentTest, ScanThenBrentFindsInteriorMinimum) {
    cDetectorOnFunction detector(ValleyAt(2.3));
    cDeconParameter& parameters = detector.figure->log->GetParameters();
    parameters.SetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE, true);
    ASSERT_EQ(detector.Detect(-15.0f, 15.0f), 0);
    EXPECT_NEAR(detector.GetResult(), 2.3, 2 * (0.025 * 2.3));
    // The subvolume files must survive each evaluation.
    EXPECT_FALSE(parameters.GetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE));
    EXPECT_EQ(detector.figure->prepared, 1);

    const std::vector<double>& seen = detector.figure->seen;
    ASSERT_GT(seen.size(), 11u);
    for (int i = 0; i < 11; ++i)
        EXPECT_EQ(seen[i], -10.0 + 2.0 * i);
    // The scan's neighbours of 2 bracket the minimum, so Brent stays between 0 and 4.
    for (size_t i = 11; i < seen.size(); ++i) {
        EXPECT_GT(seen[i], 0.0);
        EXPECT_LT(seen[i], 4.0);
    }
    EXPECT_EQ(detector.GetEvaluationCount(), static_cast<int32_t>(seen.size()));
    EXPECT_LE(seen.size(), 25u);
}

// Where the bracket search starts after the scan, and what a minimum outside the limits
// gives: 0, even when 0 lies outside the limits as well.
TEST(cSADetectorWithBrentTest, BracketStartsAtTheScansBestAndMinimaBeyondTheLimitsGiveZero) {
    struct Case {
        double minimiser;
        float lower, upper;
        double result;
        double start[2]; // evaluations 12 and 13, the bracket's first points; NaN: any
    };
    const double any = std::nan("");
    const Case cases[] = {
        // Symmetric about 1: the scan's values at 0 and 2 tie, the lower x wins, and as its
        // neighbour is not strictly above it the bracket starts at 0 and 0 + 1.
        {1.0, -15.0f, 15.0f, 1.0, {0.0, 1.0}},
        // The scan's best is its edge, 10: the bracket starts there and walks on.
        {12.4, -15.0f, 15.0f, 12.4, {10.0, 11.0}},
        {-11.5, -15.0f, 15.0f, -11.5, {any, any}},
        {12.0, -15.0f, 10.0f, 0.0, {any, any}},
        {3.0, 5.0f, 10.0f, 0.0, {any, any}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.minimiser);
        cDetectorOnFunction detector(ValleyAt(c.minimiser));
        ASSERT_EQ(detector.Detect(c.lower, c.upper), 0);
        EXPECT_NEAR(detector.GetResult(), c.result, 2 * (0.025 * std::fabs(c.result)) + 1e-6);
        const std::vector<double>& seen = detector.figure->seen;
        for (int i = 0; i < 2; ++i)
            if (!std::isnan(c.start[i])) {
                ASSERT_GT(seen.size(), std::size_t(12 + i));
                EXPECT_EQ(seen[11 + i], c.start[i]);
            }
    }
}

TEST(cSADetectorWithBrentTest, ReportsOncePerEvaluation) {
    // Far outside the scan: the search needs more than twenty evaluations.
    cDetectorOnFunction detector(ValleyAt(40.0));
    StatusHost host;
    detector.SetStatusCallback(&StatusHost::Record, &host);
    ASSERT_EQ(detector.Detect(-100.0f, 100.0f), 0);
    ASSERT_EQ(host.seen.size(), detector.figure->seen.size());
    ASSERT_GT(host.seen.size(), 20u);
    EXPECT_FLOAT_EQ(host.seen[0].fPercentDone, 5.0f);
    EXPECT_EQ(host.seen[0].sIteration, 1);
    EXPECT_FLOAT_EQ(host.seen[11].fPercentDone, 60.0f);
    EXPECT_EQ(host.seen[11].sIteration, 12);
    EXPECT_FLOAT_EQ(host.seen[20].fPercentDone, 100.0f);
    EXPECT_EQ(host.seen.back().sIterationCount, 20);
}

TEST(cSADetectorWithBrentTest, FailuresAndCancelsEndTheSearchWithTheirCode) {
    // A failed preparation evaluates nothing; a failed evaluation, or a cancel from the host
    // at its report, in the scan or in Brent's steps, ends the search there with no result. A
    // cancelled evaluation counts but restores nothing.
    struct Case {
        int32_t prepareCode;
        int failAt, cancelAt;
        int32_t code, evaluations;
    };
    const Case cases[] = {{5, 0, 0, 5, 0},
                          {0, 4, 0, 4, 4},
                          {0, 15, 0, 4, 15},
                          {0, 0, 3, OVD_ERR_CANCEL, 3},
                          {0, 0, 14, OVD_ERR_CANCEL, 14}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.failAt << " " << c.cancelAt);
        cDetectorOnFunction detector(ValleyAt(2.3));
        detector.figure->prepareCode = c.prepareCode;
        detector.figure->failAt = c.failAt;
        StatusHost host;
        host.stopAt = c.cancelAt;
        detector.SetStatusCallback(&StatusHost::Record, &host);
        EXPECT_EQ(detector.Detect(-15.0f, 15.0f), c.code);
        EXPECT_EQ(detector.GetResult(), 0.0);
        EXPECT_EQ(detector.figure->seen.size(), std::size_t(c.evaluations - (c.cancelAt > 0)));
        EXPECT_EQ(detector.GetEvaluationCount(), c.evaluations);
    }
    cDetectorOnFunction throwing(ValleyAt(2.3));
    throwing.figure->throwAt = 2;
    EXPECT_THROW(throwing.Detect(-15.0f, 15.0f), cException);
    // Without a log there is nothing to search.
    cSADetectorWithBrent detector{cCountedPtr<cDeconLog>()};
    EXPECT_EQ(detector.Detect(-15.0f, 15.0f), OVD_ERR_PARAMETER);
}
