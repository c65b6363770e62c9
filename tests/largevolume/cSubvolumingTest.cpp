#include <gtest/gtest.h>

#include <algorithm>
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
// size 90 x 90 x 8 with bands of 9 and 2 on either side.
TEST(cSubvolumingTest, CutsThreeByThreePaddedSubvolumesWhoseInteriorsAreTheStack) {
    SubvolumeRun run;
    ASSERT_EQ(run.Cut(), 0);
    ASSERT_EQ(run.logs->size(), 9u);

    const float maximum = *std::max_element(run.stack.pixels.begin(), run.stack.pixels.end());
    const float minimum = *std::min_element(run.stack.pixels.begin(), run.stack.pixels.end());
    std::set<std::string> names;
    for (uint32_t i = 0; i < 9; ++i) {
        const uint32_t ix = i % 3, iy = i / 3;
        SCOPED_TRACE(testing::Message() << "subvolume " << ix << "," << iy);
        const cDeconParameter& p = (*run.logs)[i]->GetParameters();
        // The window read: from the stack's start for the first, a full band width of
        // 18 before the interior for the others, to the stack's end for the last.
        const uint32_t window[] = {90, 108, 90};
        const uint32_t start[] = {0, 18, 18};
        EXPECT_EQ(Keys(p, DEC_IPARAMS_SUBVOLUME_EXTENDED_WIDTH,
                       DEC_IPARAMS_SUBVOLUME_EXTENDED_HEIGHT, DEC_IPARAMS_SUBVOLUME_EXTENDED_DEPTH),
                  (cImageDimensions{window[ix], window[iy], 4}));
        EXPECT_EQ(Keys(p, DEC_IPARAMS_SUBVOLUME_STARTX_IN_EXSUBVOLUME,
                       DEC_IPARAMS_SUBVOLUME_STARTY_IN_EXSUBVOLUME,
                       DEC_IPARAMS_SUBVOLUME_STARTZ_IN_EXSUBVOLUME),
                  (cImageDimensions{start[ix], start[iy], 0}));

        const std::string input = p.GetString(DEC_SPARAMS_ORIGINAL_FILE);
        const std::string result = p.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE);
        EXPECT_EQ(std::filesystem::path(input).parent_path(), run.temp.Path());
        EXPECT_EQ(std::filesystem::path(result).parent_path(), run.temp.Path());
        names.insert(input);
        names.insert(result);

        const std::vector<float> padded = ReadRaw(input);
        ASSERT_EQ(padded.size(), 90u * 90 * 8);
        auto at = [&](uint32_t x, uint32_t y, uint32_t z) { return padded[(z * 90 + y) * 90 + x]; };
        int wrong = 0, outOfRange = 0;
        for (uint32_t z = 0; z < 8; ++z)
            for (uint32_t y = 0; y < 90; ++y)
                for (uint32_t x = 0; x < 90; ++x) {
                    const float v = at(x, y, z);
                    // Guard bands blend stack pixels with weights that add up to 1.
                    outOfRange += !(v >= minimum - 1e-3f && v <= maximum + 1e-3f);
                    if (x - 9 < 72 && y - 9 < 72 && z - 2 < 4)
                        wrong += v != run.stack.At(64 * ix + x - 9, 64 * iy + y - 9, z - 2);
                }
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(outOfRange, 0);
    }
    EXPECT_EQ(names.size(), 18u);

}

// Intensity drift, transmitted light and a dark current, in that order, before the
// subvolume is made periodic.
TEST(cSubvolumingTest, CorrectsEachSubvolumeWithTheStackStatistics) {
    SubvolumeRun run;
    cDeconParameter& p = run.Parameters();
    p.SetBool(DEC_BPARAMS_INTENSITY_CORRECTION, true);
    p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_TL_BRIGHTFIELD);
    p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_MANUAL_INPUT);
    p.SetReal(DEC_RPARAMS_DARKCURRENT, 50.0f);
    ASSERT_EQ(run.Cut(), 0);
    ASSERT_EQ(run.logs->size(), 9u);

    const float maximum = run.statistics->GetMaximum();
    const float minimum = run.statistics->GetMinimum();
    const cFloatImagePtr correction = run.statistics->GetCorrectionProfile();
    // The pattern's first slice is far darker than its neighbours: its factor isn't 1.
    EXPECT_GT(std::fabs(*correction->GetPixelPointer(0, 0, 0) - 1.0f), 0.05f);
    for (uint32_t i : {0u, 4u, 8u}) {
        const uint32_t ix = i % 3, iy = i / 3;
        const cDeconParameter& sub = (*run.logs)[i]->GetParameters();
        EXPECT_TRUE(sub.GetBool(DEC_BPARAMS_IS_TLB));
        const std::vector<float> padded = ReadRaw(sub.GetString(DEC_SPARAMS_ORIGINAL_FILE));
        ASSERT_EQ(padded.size(), 90u * 90 * 8);
        int wrong = 0;
        for (uint32_t z = 0; z < 4; ++z)
            for (uint32_t y = 0; y < 72; ++y)
                for (uint32_t x = 0; x < 72; ++x) {
                    const float c = *correction->GetPixelPointer(0, 0, z);
                    const float corrected = run.stack.At(64 * ix + x, 64 * iy + y, z) * c;
                    const float inverted = std::max(maximum + minimum - corrected, 1e-20f);
                    const float expected = std::max(inverted - 50.0f, 0.0f);
                    const float v = padded[((z + 2) * 90 + y + 9) * 90 + x + 9];
                    wrong += std::fabs(v - expected) > 1e-3f * std::max(1.0f, expected);
                }
        EXPECT_EQ(wrong, 0) << "subvolume " << i;
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
