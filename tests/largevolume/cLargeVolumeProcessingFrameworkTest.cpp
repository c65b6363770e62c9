#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "largevolume/cLargeVolumeProcessingFramework.h"
#include "math/cImageMathManager.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// Notes every call in a shared journal, with the first pixel and width of what it sees;
// answers `failAt` from Process of that slice, or from Finish when failAt is the depth.
class Recorder : public cProcessingAction {
public:
    Recorder(std::string tag, std::vector<std::string>& journal, int failAt = -1, int code = 0)
        : mTag(std::move(tag)), mJournal(journal), mFailAt(failAt), mCode(code) {}
    int Process(cFloatImagePtr& image, uint32_t z) override {
        mJournal.push_back(mTag + std::to_string(z) + ":" + std::to_string(image->GetSizeX()) +
                           "@" + std::to_string(int(*image->GetPixelPointer(0, 0, 0))));
        return int(z) == mFailAt ? mCode : 0;
    }
    int Finish() override {
        mJournal.push_back(mTag + "F");
        return mFailAt == kAtFinish ? mCode : 0;
    }
    static constexpr int kAtFinish = 1000;

private:
    std::string mTag;
    std::vector<std::string>& mJournal;
    int mFailAt, mCode;
};

// Doubles the slice in place.
class Doubler : public cProcessingAction {
public:
    int Process(cFloatImagePtr& image, uint32_t) override {
        cImageMathManager::Instance().GetImageMath()->MultiplyImageByConstant(image, 2.0f, image);
        return 0;
    }
    int Finish() override { return 0; }
};

// Replaces the slice by an image of its own, one column narrower, holding p + 100.
class NarrowingReplacer : public cProcessingAction {
public:
    int Process(cFloatImagePtr& image, uint32_t) override {
        const uint32_t w = image->GetSizeX() - 1, h = image->GetSizeY();
        if (!mOwn)
            mOwn = new cOvdImage<float>(cImageDimensions{w, h, 1}, Contiguous3D, "test");
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->CopyRectangularRoi(image, mOwn, {0, 0, 0, w - 1, h - 1, 0},
                                 {0, 0, 0, w - 1, h - 1, 0});
        math->AddImageByConstant(mOwn, 100.0f, mOwn);
        image = mOwn;
        return 0;
    }
    int Finish() override { return 0; }

private:
    cFloatImagePtr mOwn;
};

BeadStack Pattern(uint32_t w, uint32_t h, uint32_t d) {
    return MakeStack(w, h, d,
                     [](uint32_t x, uint32_t y, uint32_t z) { return float(x + 10 * y + 50 * z); });
}

} // namespace

TEST(cLargeVolumeProcessingFramework, ActionsSeeSlicesInOrderAndTheLastImageIsWritten) {
    TempDir dir;
    const BeadStack in = Pattern(5, 4, 3);
    WriteRaw(dir.File("in"), in.v);

    std::vector<std::string> journal;
    cLargeVolumeProcessingFramework pass(dir.File("in"), 5, 4, 3);
    Doubler doubler;
    cProcessingActionPtr replacer(new NarrowingReplacer);
    Recorder last("R", journal);
    pass.AddAction(&doubler);
    pass.AddAction(replacer);
    pass.AddAction(&last);
    pass.SetOutput(dir.File("out"));
    ASSERT_EQ(pass.Run(), 0);

    // The last action sees the replacement (4 wide, 2p + 100); every slice is read afresh
    // into the slice image, not into what replaced it before.
    EXPECT_EQ(journal, (std::vector<std::string>{"R0:4@100", "R1:4@200", "R2:4@300", "RF"}));
    const auto written = [&](int x, int y, int z) { return 2 * in.at(x, y, z) + 100; };
    EXPECT_EQ(ReadRaw<float>(dir.File("out")), MakeStack(4, 4, 3, written).v);

    EXPECT_EQ(pass.Close(), 0);
    EXPECT_EQ(pass.GetActionCount(), 0u);
}

TEST(cLargeVolumeProcessingFramework, FailuresEndThePassAtOnce) {
    TempDir dir;
    WriteRaw(dir.File("in"), Pattern(3, 2, 3).v);
    std::vector<std::string> journal;

    // A Process failure ends the pass there: later actions and Finish aren't called, the
    // slices before it are written. A Finish failure stops the Finish calls after it.
    const std::vector<std::string> processFails{"A0:3@0", "B0:3@0", "A1:3@50"};
    const std::vector<std::string> finishFails{"A0:3@0",   "B0:3@0",   "A1:3@50", "B1:3@50",
                                               "A2:3@100", "B2:3@100", "AF"};
    for (const auto& [failAt, calls, slices] :
         {std::tuple{1, processFails, 1u}, std::tuple{Recorder::kAtFinish, finishFails, 3u}}) {
        SCOPED_TRACE(failAt);
        journal.clear();
        Recorder first("A", journal, failAt, 7), second("B", journal);
        cLargeVolumeProcessingFramework pass(dir.File("in"), 3, 2, 3);
        pass.AddAction(&first);
        pass.AddAction(&second);
        pass.SetOutput(dir.File("out"));
        EXPECT_EQ(pass.Run(), 7);
        EXPECT_EQ(journal, calls);
        EXPECT_EQ(pass.Close(), 0);
        EXPECT_EQ(std::filesystem::file_size(dir.File("out")), slices * 3u * 2 * sizeof(float));
    }
    journal.clear();
    { // A stack file that ends inside the last slice, or doesn't exist, is refused
        // before any action sees a slice and before anything is written.
        std::vector<float> shortStack(3 * 2 * 3 - 1, 1.0f);
        WriteRaw(dir.File("short"), shortStack);
        Recorder recorder("S", journal);
        for (const char* name : {"short", "missing"}) {
            cLargeVolumeProcessingFramework pass(dir.File(name), 3, 2, 3);
            pass.AddAction(&recorder);
            pass.SetOutput(dir.File("never"));
            EXPECT_EQ(pass.Run(), cLargeVolumeProcessingFramework::kNoInput) << name;
        }
        EXPECT_TRUE(journal.empty());
        EXPECT_EQ(std::filesystem::file_size(dir.File("never")), 0u);
    }
}
