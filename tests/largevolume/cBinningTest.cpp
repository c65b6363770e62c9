#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "largevolume/cBinning.h"
#include "largevolume/cImageStatistics.h"
#include "largevolume/cLargeVolumeProcessingFramework.h"
#include "support/BeadStack.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// 8 by 6 by 3, binned 2 by 2:
//  slice 0: smooth blocks (levels 90 to 110) with strong pixel detail inside each block;
//  slice 1: a checkerboard of 10 +- 3, every block summing to 40;
//  slice 2: zeros.
float Pixel(uint32_t x, uint32_t y, uint32_t z) {
    const float sign = (x + y) % 2 ? 1.0f : -1.0f;
    if (z == 0)
        return 90.0f + 5.0f * float(x / 2 + y / 2) + sign * 30.0f + float(x % 2) * 4.0f;
    if (z == 1)
        return 10.0f + 3.0f * sign;
    return 0.0f;
}

struct Pass {
    TempDir dir;
    BeadStack in = MakeStack(8, 6, 3, Pixel);

    // Bins `in` into "binned" with the map "ratio", statistics over the binned slices.
    int Shrink(cImageStatistics* statistics = nullptr) {
        WriteRaw(dir.File("in"), in.v);
        cCountedPtr<cBinning> binning(new cBinning(2, 2, 8, 6, 1, dir.File("ratio"), true));
        EXPECT_EQ(binning->GetResultDimensions(), (cImageDimensions{4, 3, 1}));
        cLargeVolumeProcessingFramework pass(dir.File("in"), 8, 6, 3);
        pass.AddAction(binning);
        if (statistics)
            pass.AddAction(statistics);
        pass.SetOutput(dir.File("binned"));
        return pass.Run();
    }
    // Brings "binned" back to full size into `out`, twice over one framework and action, as
    // a pass per saved state does.
    int Restore(const std::string& out) {
        cBinning binning(2, 2, 8, 6, 1, dir.File("ratio"), false);
        EXPECT_EQ(binning.GetResultDimensions(), (cImageDimensions{8, 6, 1}));
        cLargeVolumeProcessingFramework pass("", 4, 3, 3);
        pass.AddAction(&binning);
        int result = 0;
        for (const std::string& name : {out + "-first", out}) {
            pass.SetInput(dir.File("binned"));
            pass.SetOutput(name);
            result = pass.Run();
            if (result != 0)
                return result;
        }
        EXPECT_EQ(ReadRaw<float>(out + "-first"), ReadRaw<float>(out));
        return result;
    }
};

} // namespace

TEST(cBinning, ShrinkingSumsBlocksAndTheRatioMapBringsTheDetailBack) {
    Pass p;
    cImageStatistics statistics(4, 3, 3);
    ASSERT_EQ(p.Shrink(&statistics), 0);

    // Each binned pixel carries the intensity of the four it replaces.
    const std::vector<float> binned = ReadRaw<float>(p.dir.File("binned"));
    ASSERT_EQ(binned.size(), 4u * 3 * 3);
    float largest = 0;
    for (uint32_t z = 0; z < 3; ++z)
        for (uint32_t y = 0; y < 3; ++y)
            for (uint32_t x = 0; x < 4; ++x) {
                const float sum = p.in.at(2 * x, 2 * y, z) + p.in.at(2 * x + 1, 2 * y, z) +
                                  p.in.at(2 * x, 2 * y + 1, z) + p.in.at(2 * x + 1, 2 * y + 1, z);
                EXPECT_NEAR(binned[(z * 3 + y) * 4 + x], sum, 1e-4 * sum) << x << y << z;
                largest = std::max(largest, sum);
            }
    // Actions after the binning see binned slices.
    EXPECT_NEAR(statistics.GetMaximum(), largest, 1e-4 * largest);

    // The map is full size; what it holds shows in the restored stack.
    EXPECT_EQ(ReadRaw<float>(p.dir.File("ratio")).size(), 8u * 6 * 3);

    // Restored: a flat binned slice (slice 1), whose map is (I / mean) / 1.01, comes back as
    // I / 1.01 exactly, and a slice of zeros as zeros; smooth blocks near the mean come back
    // to within about 1% (the map's a / (a^2 + 0.01) with a near 1), with the pixel detail
    // that binning had removed.
    ASSERT_EQ(p.Restore(p.dir.File("restored")), 0);
    const std::vector<float> restored = ReadRaw<float>(p.dir.File("restored"));
    ASSERT_EQ(restored.size(), 8u * 6 * 3);
    for (uint32_t y = 0; y < 6; ++y)
        for (uint32_t x = 0; x < 8; ++x) {
            const float i0 = p.in.at(x, y, 0);
            EXPECT_NEAR(restored[y * 8 + x], i0, 0.02 * i0) << x << "," << y;
            EXPECT_NEAR(restored[48 + y * 8 + x], p.in.at(x, y, 1) / 1.01, 1e-5);
            EXPECT_EQ(restored[96 + y * 8 + x], 0.0f);
        }
}

TEST(cBinning, FactorsBelowTwoChangeNothing) {
    TempDir dir;
    const BeadStack in = MakeStack(5, 3, 2, Pixel);
    WriteRaw(dir.File("in"), in.v);
    cBinning binning(1, 0, 5, 3, 1, dir.File("ratio"), true);
    EXPECT_EQ(binning.GetResultDimensions(), (cImageDimensions{5, 3, 1}));
    cLargeVolumeProcessingFramework pass(dir.File("in"), 5, 3, 2);
    pass.AddAction(&binning);
    pass.SetOutput(dir.File("out"));
    ASSERT_EQ(pass.Run(), 0);
    EXPECT_EQ(ReadRaw<float>(dir.File("out")), in.v);
    EXPECT_EQ(std::filesystem::file_size(dir.File("ratio")), 0u);

    // Sizes that don't divide lose the last partial block.
    EXPECT_EQ(cBinning(2, 2, 9, 7, 1, dir.File("r2"), true).GetResultDimensions(),
              (cImageDimensions{4, 3, 1}));
    EXPECT_EQ(cBinning(3, 1, 9, 7, 1, dir.File("r3"), true).GetResultDimensions(),
              (cImageDimensions{3, 7, 1}));
}
