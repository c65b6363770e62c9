#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "core/cDeconLog.h"
#include "core/cException.h"
#include "core/cStatusUpdateHandler.h"
#include "decon/cAlwaysStopCriterion.h"
#include "decon/cIterativeDeconFramework.h"
#include "decon/cIterativeStopCriterion.h"
#include "support/TempDir.h"
#include "support/RawStack.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// ---- Small stacks, and raw files written and read here without the library's file classes

// Even sizes, so that shifting the centre of a PSF there and back is exact.
const cImageDimensions kSize{6, 4, 2};
using Pixels = std::vector<float>;

Pixels Ramp(float start) {
    Pixels values(kSize.Voxels());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = start + static_cast<float>(i);
    return values;
}

Pixels Plus(Pixels values, float value) {
    for (float& v : values)
        v += value;
    return values;
}

// Visits every pixel of an image in file order.
template <class Visit> void ForEachPixel(const cFloatImagePtr& image, Visit visit) {
    std::size_t i = 0;
    for (uint32_t z = 0; z < image->GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image->GetSizeY(); ++y) {
            float* line = image->GetLinePointer(y, z);
            for (uint32_t x = 0; x < image->GetSizeX(); ++x)
                visit(line[x], i++);
        }
}


// ---- Fake operations that write what happens to them into one journal

using Journal = std::vector<std::string>;

class FakeConstraint : public cConstraint {
public:
    FakeConstraint(Journal& journal, std::string name)
        : mJournal(journal), mName(std::move(name)) {}
    void Setup() override { mJournal.push_back(mName + ".Setup"); }
    void Apply(cFloatImagePtr&) override { mJournal.push_back(mName + ".Apply"); }

private:
    Journal& mJournal;
    std::string mName;
};

// One pass adds 1 to every pixel of the object.
class FakeOptimization : public cOptimization {
public:
    explicit FakeOptimization(Journal& journal) : mJournal(journal) {}
    void SetAcceleration(const cAccelerationPtr& acceleration) override {
        mAcceleration = acceleration;
    }
    cAccelerationPtr GetAcceleration() override { return mAcceleration; }
    void Initialize() override {}
    void Apply(cFloatImagePtr& object, cFloatImagePtr&, cFloatImagePtr&) override {
        mJournal.push_back("optimization");
        ForEachPixel(object, [](float& v, std::size_t) { v += 1; });
    }
    void RetrievePsf(cFloatImagePtr&) override { mJournal.push_back("RetrievePsf"); }

private:
    Journal& mJournal;
    cAccelerationPtr mAcceleration;
};

// Makes a PSF holding 0, 1, 2, ...
class FakePsfFirstGuess : public cPsfFirstGuess {
public:
    explicit FakePsfFirstGuess(Journal& journal) : mJournal(journal) {}
    void SetFileName(const std::string&) override {}
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override {
        mJournal.push_back("psfGuess");
        psf = cFloatImagePtr(new cOvdImage<float>(original->GetDimensions(), "test"));
        ForEachPixel(psf, [](float& v, std::size_t i) { v = static_cast<float>(i); });
    }

private:
    Journal& mJournal;
};

// ---- Status reports through a handler with a test callback

struct StatusRecorder {
    std::vector<ovdStructInvFilterStatus> reports;
};

uint16_t RecordStatus(ovdStructInvFilterStatus* status, void* userData) {
    static_cast<StatusRecorder*>(userData)->reports.push_back(*status);
    return OVD_STATUS_CONTINUE;
}

// ---- Runs in a temporary directory

class FrameworkRun : public ::testing::Test {
protected:
    void SetUp() override {
        WriteRaw(dir.File("original.raw"), original);
        Params().SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("original.raw"));
        Params().SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, Output());
        Params().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 1);
        Params().SetInt(DEC_IPARAMS_SAVE_INTERVAL, 100);
        Params().SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ITERATIVE);
        framework.SetStreams(messages, messages);
        framework.SetStopCriterion(cStopCriterionPtr(new cIterativeStopCriterion(log)));
    }

    cDeconParameter& Params() { return log->GetParameters(); }
    std::string Output() const { return dir.File("result.raw"); }

    void WithStatus() {
        framework.SetStatusUpdateHandler(
            cCountedPtr<cStatusUpdateHandler>(new cStatusUpdateHandler(RecordStatus, &status)));
    }
    static void Run(cIterativeDeconFramework& run) {
        run.Load();
        run.Prepare();
        run.Iterate();
    }

    // A run of its own on a copy of the log, restoring in place, with a plain count
    // criterion and an optimization that writes into `passes`.
    cCountedPtr<cIterativeDeconFramework> NewRun(cCountedPtr<cDeconLog>& runLog,
                                                 const std::string& output, Journal& passes) {
        runLog = cCountedPtr<cDeconLog>(new cDeconLog(*log));
        runLog->GetParameters().SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, output);
        cCountedPtr<cIterativeDeconFramework> run(new cIterativeDeconFramework(runLog, kSize));
        run->SetObjectSharesOriginal(true);
        run->SetStreams(messages, messages);
        run->SetStopCriterion(cStopCriterionPtr(new cIterativeStopCriterion(runLog)));
        run->SetOptimization(cOptimizationPtr(new FakeOptimization(passes)));
        return run;
    }

    TempDir dir{"ovd-framework"};
    const Pixels original = Ramp(10);
    cCountedPtr<cDeconLog> log{new cDeconLog()};
    cIterativeDeconFramework framework{log, kSize};
    std::ostringstream messages;
    Journal journal;
    StatusRecorder status;
};

} // namespace

TEST_F(FrameworkRun, EachStopCriterionAllowsItsNumberOfPasses) {
    struct Case {
        const char* name;
        int32_t total;
        bool always;
        std::size_t passes;
    };
    for (const Case& c : {Case{"always", 3, true, 0}, Case{"count", 3, false, 3},
                          Case{"count of one", 1, false, 1}}) {
        SCOPED_TRACE(c.name);
        cCountedPtr<cDeconLog> runLog;
        Journal passes;
        cCountedPtr<cIterativeDeconFramework> run = NewRun(runLog, Output(), passes);
        runLog->GetParameters().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, c.total);
        if (c.always)
            run->SetStopCriterion(cStopCriterionPtr(new cAlwaysStopCriterion(runLog)));
        Run(*run);
        EXPECT_EQ(passes.size(), c.passes);
        EXPECT_EQ(ReadRaw(Output()), Plus(original, static_cast<float>(c.passes)));
    }

    // A framework without a criterion has no way to end its loop and refuses to start it.
    framework.SetStopCriterion(cStopCriterionPtr());
    framework.Load();
    framework.Prepare();
    try {
        framework.Iterate();
        FAIL() << "iterated without a stop criterion";
    } catch (const cException& failure) {
        EXPECT_EQ(failure.GetCode(), OVD_ERR_PARAMETER);
    }
}

TEST_F(FrameworkRun, ReportsProgressAndStagesStepByStep) {
    // Two passes; outside the loop a PSF guess and one pre-processing constraint, inside the
    // optimization and one image constraint: 2 x 2 + 1 + 2 = 7 steps of 100/7 percent each.
    Params().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 2);
    framework.SetPsfFirstGuess(cPsfFirstGuessPtr(new FakePsfFirstGuess(journal)));
    framework.AddImagePreprocessing(cConstraintPtr(new FakeConstraint(journal, "pre")));
    framework.AddImageConstraint(cConstraintPtr(new FakeConstraint(journal, "image")));
    framework.SetOptimization(cOptimizationPtr(new FakeOptimization(journal)));
    WithStatus();
    framework.SetSubvolumeProgress(3, 5);
    Run(framework);

    struct Expected {
        float steps;
        int16_t iteration, stage;
    };
    const std::vector<Expected> expected = {
        {1, 0, 102}, {2, 0, 102},              // PSF guess, pre-processing
        {2, 0, 136}, {3, 0, 106}, {4, 0, 136}, // pass 0: start, optimization, constraint
        {4, 1, 136}, {5, 1, 106}, {6, 1, 136}, // pass 1
        {7, 2, 136},                           // the finish
    };
    ASSERT_EQ(status.reports.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        const ovdStructInvFilterStatus& report = status.reports[i];
        EXPECT_NEAR(report.fPercentDone, expected[i].steps * 100.0f / 7, 1e-4);
        EXPECT_EQ(report.sIteration, expected[i].iteration);
        EXPECT_EQ(report.sIterationCount, 2);
        EXPECT_EQ(report.sStage, expected[i].stage);
        EXPECT_EQ(report.sSubvolume, 3);
        EXPECT_EQ(report.sSubvolumeCount, 5);
    }
}

TEST_F(FrameworkRun, FailsOnAnOriginalThatCannotBeReadOrAResultThatCannotBeWritten) {
    Params().SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("missing.raw"));
    EXPECT_THROW(framework.Load(), cException);
    // A file shorter than the stack is no stack either.
    WriteRaw(dir.File("short.raw"), Pixels(kSize.x * kSize.y));
    Params().SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("short.raw"));
    EXPECT_THROW(framework.Load(), cException);

    Params().SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("original.raw"));
    Params().SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, dir.File("no-such-directory/result.raw"));
    framework.Load();
    framework.Prepare();
    EXPECT_THROW(framework.Iterate(), cException);
}
