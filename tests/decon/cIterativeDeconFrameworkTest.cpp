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
#include "decon/cSharedPsfFirstGuess.h"
#include "support/RawStack.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

const cImageDimensions kSize{6, 4, 2};

// The stages only report their steps; one pass adds 1 to every pixel of the object.
struct FakeConstraint : cConstraint {
    void Setup() override {}
    void Apply(cFloatImagePtr&) override {}
};

struct FakeOptimization : cOptimization {
    void SetAcceleration(const cAccelerationPtr&) override {}
    cAccelerationPtr GetAcceleration() override { return {}; }
    void Initialize() override {}
    void Apply(cFloatImagePtr& object, cFloatImagePtr&, cFloatImagePtr&) override {
        ++passes;
        ForEachPixel(kSize, [&](uint32_t x, uint32_t y, uint32_t z) { At(object, x, y, z) += 1; });
    }
    std::size_t passes = 0;
};

struct FakePsfFirstGuess : cPsfFirstGuess {
    void SetFileName(const std::string&) override {}
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override {
        psf = Constant(original->GetDimensions(), 1.0f);
    }
};

uint16_t RecordStatus(ovdStructInvFilterStatus* status, void* userData) {
    static_cast<std::vector<ovdStructInvFilterStatus>*>(userData)->push_back(*status);
    return OVD_STATUS_CONTINUE;
}

// Runs in a temporary directory.
class FrameworkRun : public ::testing::Test {
protected:
    void SetUp() override {
        for (std::size_t i = 0; i < original.size(); ++i)
            original[i] = 10.0f + static_cast<float>(i);
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
    static void Run(cIterativeDeconFramework& run) {
        run.Load();
        run.Prepare();
        run.Iterate();
    }

    TempDir dir{"ovd-framework"};
    std::vector<float> original = std::vector<float>(kSize.Voxels());
    cCountedPtr<cDeconLog> log{new cDeconLog()};
    cIterativeDeconFramework framework{log, kSize};
    std::ostringstream messages;
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
        // A run of its own on a copy of the log, restoring in place.
        Params().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, c.total);
        cCountedPtr<cDeconLog> runLog(new cDeconLog(*log));
        cIterativeDeconFramework run(runLog, kSize);
        run.SetObjectSharesOriginal(true);
        run.SetStreams(messages, messages);
        if (c.always)
            run.SetStopCriterion(cStopCriterionPtr(new cAlwaysStopCriterion(runLog)));
        else
            run.SetStopCriterion(cStopCriterionPtr(new cIterativeStopCriterion(runLog)));
        FakeOptimization* optimization = new FakeOptimization();
        run.SetOptimization(cOptimizationPtr(optimization));
        Run(run);
        EXPECT_EQ(optimization->passes, c.passes);
        std::vector<float> expected = original;
        for (float& v : expected)
            v += static_cast<float>(c.passes);
        EXPECT_EQ(ReadRaw(Output()), expected);
    }

    // A framework without a criterion has no way to end its loop and refuses to start it.
    framework.SetStopCriterion(cStopCriterionPtr());
    framework.Load();
    framework.Prepare();
    EXPECT_NE(FailureOf([&] { framework.Iterate(); }), ""); // a parameter failure
}

TEST_F(FrameworkRun, ReportsProgressAndStagesStepByStep) {
    // Two passes; outside the loop a PSF guess and one pre-processing constraint, inside the
    // optimization and one image constraint: 2 x 2 + 1 + 2 = 7 steps of 100/7 percent each.
    Params().SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, 2);
    framework.SetPsfFirstGuess(cPsfFirstGuessPtr(new FakePsfFirstGuess()));
    framework.AddImagePreprocessing(cConstraintPtr(new FakeConstraint()));
    framework.AddImageConstraint(cConstraintPtr(new FakeConstraint()));
    framework.SetOptimization(cOptimizationPtr(new FakeOptimization()));
    std::vector<ovdStructInvFilterStatus> reports;
    framework.SetStatusUpdateHandler(
        cCountedPtr<cStatusUpdateHandler>(new cStatusUpdateHandler(RecordStatus, &reports)));
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
    ASSERT_EQ(reports.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        const ovdStructInvFilterStatus& report = reports[i];
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
    WriteRaw(dir.File("short.raw"), std::vector<float>(kSize.x * kSize.y));
    Params().SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("short.raw"));
    EXPECT_THROW(framework.Load(), cException);

    Params().SetString(DEC_SPARAMS_ORIGINAL_FILE, dir.File("original.raw"));
    Params().SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, dir.File("no-such-directory/result.raw"));
    framework.Load();
    framework.Prepare();
    EXPECT_THROW(framework.Iterate(), cException);
}

// A cut's restorations share one guess: the first makes and prepares the PSF, the others
// take it as prepared. One that only reads its PSF gets the kept image itself; one that
// writes it gets a copy, so that what it writes never reaches the next restoration.
TEST_F(FrameworkRun, ASharedPsfIsMadeAndPreparedOnceForAWholeSeries) {
    struct CountingGuess : FakePsfFirstGuess {
        void Apply(cFloatImagePtr& psf, cFloatImagePtr& original) override {
            ++made;
            FakePsfFirstGuess::Apply(psf, original);
        }
        int made = 0;
    };
    struct Doubling : FakeConstraint {
        void Apply(cFloatImagePtr& psf) override {
            ++prepared;
            ForEachPixel(kSize, [&](uint32_t x, uint32_t y, uint32_t z) { At(psf, x, y, z) *= 2; });
        }
        int prepared = 0;
    };
    struct PsfUser : FakeOptimization {
        explicit PsfUser(bool writes) : writes(writes) {}
        bool OnlyReadsPsf() const override { return !writes; }
        void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override {
            FakeOptimization::Apply(object, original, psf);
            seen.push_back(psf);
            seenPixels.push_back(Pixels(psf));
            if (writes)
                At(psf, 1, 1, 1) = -5.0f;
        }
        bool writes;
        std::vector<cFloatImagePtr> seen;
        std::vector<std::vector<float>> seenPixels;
    };
    for (const bool writes : {false, true}) {
        SCOPED_TRACE(writes ? "writes its PSF" : "only reads its PSF");
        const cCountedPtr<CountingGuess> own(new CountingGuess());
        const cCountedPtr<cSharedPsfFirstGuess> shared(new cSharedPsfFirstGuess(own));
        const cCountedPtr<Doubling> doubling(new Doubling());
        const cCountedPtr<PsfUser> user(new PsfUser(writes));
        for (int restoration = 0; restoration < 3; ++restoration) {
            cIterativeDeconFramework run(log, kSize);
            run.SetStreams(messages, messages);
            run.SetStopCriterion(cStopCriterionPtr(new cIterativeStopCriterion(log)));
            run.SetPsfFirstGuess(shared);
            run.AddPsfPreprocessing(doubling);
            run.SetOptimization(user);
            Run(run);
        }
        EXPECT_EQ(own->made, 1);
        EXPECT_EQ(doubling->prepared, 1);
        ASSERT_EQ(user->seen.size(), 3u);
        for (const std::vector<float>& pixels : user->seenPixels)
            EXPECT_EQ(pixels, std::vector<float>(kSize.Voxels(), 2.0f));
        EXPECT_EQ(user->seen[0].Get() == user->seen[2].Get(), !writes);
        EXPECT_EQ(user->seen[2]->GetFrozenNumber() != 0, !writes);
    }
}
