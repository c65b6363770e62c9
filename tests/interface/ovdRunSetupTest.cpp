#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <vector>

#include "interface/ovdRunSetup.h"
#include "support/RawStack.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

int64_t gFakeFreeBytes = 0;
int64_t FakeQuery(const std::string&) {
    return gFakeFreeBytes;
}

struct RestoreDiskQuery {
    ~RestoreDiskQuery() { ovdSetDiskSpaceQuery(nullptr); }
};

} // namespace

TEST(ovdConvertToFloatFile, ConvertsByValueAndTellsUnreadableAndUnwritableFilesApart) {
    TempDir dir;
    // 3x2x2 stacks; values at the ends of each type's range must come through unscaled.
    const std::vector<uint16_t> words{0, 1, 2, 1000, 65535, 7, 8, 9, 10, 11, 12, 40000};
    const std::vector<uint8_t> bytes{0, 255, 1, 2, 3, 4, 128, 5, 6, 7, 8, 9};
    WriteRaw(dir.File("in16"), words);
    WriteRaw(dir.File("in8"), bytes);

    ASSERT_EQ(ovdConvertToFloatFile<uint16_t>(dir.File("in16"), dir.File("out16"), 3, 2, 2), 0);
    ASSERT_EQ(ovdConvertToFloatFile<uint8_t>(dir.File("in8"), dir.File("out8"), 3, 2, 2), 0);
    EXPECT_EQ(ReadRaw(dir.File("out16")), std::vector<float>(words.begin(), words.end()));
    EXPECT_EQ(ReadRaw(dir.File("out8")), std::vector<float>(bytes.begin(), bytes.end()));

    // Unreadable or short input answers 7, an output that can't be created 8.
    WriteRaw(dir.File("short"), std::vector<uint16_t>(5, 1)); // a 3x2x1 slice needs 6
    EXPECT_EQ(ovdConvertToFloatFile<uint16_t>(dir.File("missing"), dir.File("o"), 3, 2, 1), 7);
    EXPECT_EQ(ovdConvertToFloatFile<uint16_t>(dir.File("short"), dir.File("o"), 3, 2, 1), 7);
    WriteRaw(dir.File("full"), std::vector<uint16_t>(6, 1));
    EXPECT_EQ(ovdConvertToFloatFile<uint16_t>(dir.File("full"), dir.File("no/such/dir"), 3, 2, 1),
              8);
}

TEST(ovdCheckDiskSpace, ComparesKilobytesAndCountsAFailedQueryAsNoSpace) {
    // Without a stand-in the file system of the directory itself answers; no path, no space.
    TempDir dir;
    EXPECT_TRUE(ovdCheckDiskSpace(1, dir.Path().string()));
    EXPECT_FALSE(ovdCheckDiskSpace(1, ""));
    RestoreDiskQuery restore;
    ovdSetDiskSpaceQuery(&FakeQuery);
    gFakeFreeBytes = 100 * 1024;
    EXPECT_TRUE(ovdCheckDiskSpace(100, "/tmp"));
    EXPECT_FALSE(ovdCheckDiskSpace(101, "/tmp"));
    gFakeFreeBytes = 100 * 1024 + 1023; // partial kilobytes don't count
    EXPECT_FALSE(ovdCheckDiskSpace(101, "/tmp"));
    gFakeFreeBytes = -1;
    EXPECT_FALSE(ovdCheckDiskSpace(0, "/tmp"));
    gFakeFreeBytes = int64_t{5} << 40; // 5 TB free must not wrap into "full"
    EXPECT_TRUE(ovdCheckDiskSpace(UINT32_C(2000000000), "/tmp"));
}
