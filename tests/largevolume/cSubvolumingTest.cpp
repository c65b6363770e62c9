#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "largevolume/SubvolumeRun.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

cImageDimensions Keys(const cDeconParameter& p, DecIntKey x, DecIntKey y, DecIntKey z) {
    return {uint32_t(p.GetInt(x)), uint32_t(p.GetInt(y)), uint32_t(p.GetInt(z))};
}

// 200 x 200 x 4 with XY bands of 4, Z bands of 2 and an overlap of 8, on a budget that
// allows 90 pixels across: interiors of 72 x 72 x 4 that stride by 64, padded to the fast
// size 90 x 90 x 8 with bands of 9 and 2 on either side. Asked for, intensity drift,
// transmitted light and a dark current are corrected with the stack's statistics, in that
// order, before the subvolume is made periodic.
TEST(cSubvolumingTest, CutsThreeByThreePaddedSubvolumesWhoseInteriorsAreTheCorrectedStack) {
    for (const bool corrected : {false, true}) {
        SCOPED_TRACE(corrected ? "corrected" : "as read");
        SubvolumeRun run;
        cDeconParameter& p = run.Parameters();
        if (corrected) {
            p.SetBool(DEC_BPARAMS_INTENSITY_CORRECTION, true);
            p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_TL_BRIGHTFIELD);
            p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_MANUAL_INPUT);
            p.SetReal(DEC_RPARAMS_DARKCURRENT, 50.0f);
        }
        ASSERT_EQ(run.Cut(), 0);
        ASSERT_EQ(run.logs->size(), 9u);

        const std::vector<float>& stack = run.stack.pixels;
        const float maximum = *std::max_element(stack.begin(), stack.end());
        const float minimum = *std::min_element(stack.begin(), stack.end());
        const cFloatImagePtr correction = run.statistics->GetCorrectionProfile();
        // The pattern's first slice is far darker than its neighbours: its factor isn't 1.
        EXPECT_TRUE(!corrected || std::fabs(*correction->GetPixelPointer(0, 0, 0) - 1.0f) > 0.05f);
        auto expected = [&](uint32_t x, uint32_t y, uint32_t z) {
            if (!corrected)
                return run.stack.At(x, y, z);
            const float c = run.stack.At(x, y, z) * *correction->GetPixelPointer(0, 0, z);
            return std::max(std::max(maximum + minimum - c, 1e-20f) - 50.0f, 0.0f);
        };
        std::set<std::string> names;
        for (uint32_t i = 0; i < 9; ++i) {
            const uint32_t ix = i % 3, iy = i / 3;
            SCOPED_TRACE(testing::Message() << "subvolume " << ix << "," << iy);
            const cDeconParameter& sub = (*run.logs)[i]->GetParameters();
            EXPECT_EQ(sub.GetBool(DEC_BPARAMS_IS_TLB), corrected);
            // The window read: from the stack's start for the first, a full band width of
            // 18 before the interior for the others, to the stack's end for the last.
            const uint32_t window[] = {90, 108, 90};
            const uint32_t start[] = {0, 18, 18};
            EXPECT_EQ(Keys(sub, DEC_IPARAMS_SUBVOLUME_EXTENDED_WIDTH,
                           DEC_IPARAMS_SUBVOLUME_EXTENDED_HEIGHT,
                           DEC_IPARAMS_SUBVOLUME_EXTENDED_DEPTH),
                      (cImageDimensions{window[ix], window[iy], 4}));
            EXPECT_EQ(Keys(sub, DEC_IPARAMS_SUBVOLUME_STARTX_IN_EXSUBVOLUME,
                           DEC_IPARAMS_SUBVOLUME_STARTY_IN_EXSUBVOLUME,
                           DEC_IPARAMS_SUBVOLUME_STARTZ_IN_EXSUBVOLUME),
                      (cImageDimensions{start[ix], start[iy], 0}));

            const std::string input = sub.GetString(DEC_SPARAMS_ORIGINAL_FILE);
            const std::string result = sub.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE);
            EXPECT_EQ(std::filesystem::path(input).parent_path(), run.temp.Path());
            EXPECT_EQ(std::filesystem::path(result).parent_path(), run.temp.Path());
            names.insert(input);
            names.insert(result);

            const std::vector<float> padded = ReadRaw(input);
            ASSERT_EQ(padded.size(), 90u * 90 * 8);
            int wrong = 0, outOfRange = 0;
            for (uint32_t z = 0; z < 8; ++z)
                for (uint32_t y = 0; y < 90; ++y)
                    for (uint32_t x = 0; x < 90; ++x) {
                        const float v = padded[(z * 90 + y) * 90 + x];
                        // Guard bands blend stack pixels with weights that add up to 1.
                        outOfRange += !corrected && !(v >= minimum - 1e-3f && v <= maximum + 1e-3f);
                        if (x - 9 < 72 && y - 9 < 72 && z - 2 < 4) {
                            const float want = expected(64 * ix + x - 9, 64 * iy + y - 9, z - 2);
                            wrong += std::fabs(v - want) >
                                     (corrected ? 1e-3f * std::max(1.0f, want) : 0.0f);
                        }
                    }
            EXPECT_EQ(wrong, 0);
            EXPECT_EQ(outOfRange, 0);
        }
        EXPECT_EQ(names.size(), 18u);
    }
}

TEST(cSubvolumingTest, RefusesBeforeWritingAnythingWhenTheDiskCannotHoldTheRun) {
    {
        // A temporary directory whose disk can't be asked counts as full.
        SubvolumeRun run;
        run.Parameters().SetString(DEC_SPARAMS_TEMP_DIRECTORY,
                                   run.temp.File("missing/deeper/still"));
        EXPECT_EQ(run.Cut(), 5);
        EXPECT_EQ(run.temp.Count(), 0u);
    }
    cSubvoluming withoutLog;
    EXPECT_EQ(withoutLog.Prepare(), 1);
}

} // namespace
