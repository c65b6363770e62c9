#include <gtest/gtest.h>

#include "image/MemoryStatus.h"

using namespace Ovidane;

TEST(MemoryStatus, MemoryPerBufferKeepsBackAddressSpaceAndNeverAnswersBelowEight) {
    // More address space than memory: the memory is shared out.
    EXPECT_EQ(MemoryPerBufferMB(1000, 2000, 8), 125);
    // Less: a share of the address space is kept back, the space over half the buffers,
    // at most 200 MB.
    EXPECT_EQ(MemoryPerBufferMB(4000, 3000, 8), (3000 - 200) / 8);
    EXPECT_EQ(MemoryPerBufferMB(4000, 600, 8), (600 - 150) / 8);
    EXPECT_EQ(MemoryPerBufferMB(4000, 4000, 19), (4000 - 200) / 19);
    // One buffer: the share is the whole 200 MB.
    EXPECT_EQ(MemoryPerBufferMB(4000, 1000, 1), 800);
    // Never below 8, also with nothing available or more kept back than there is.
    EXPECT_EQ(MemoryPerBufferMB(0, 0, 19), 8);
    EXPECT_EQ(MemoryPerBufferMB(100, 100, 19), 8);
    EXPECT_EQ(MemoryPerBufferMB(1000, 150, 1), 8);
    EXPECT_EQ(MemoryPerBufferMB(64, 128, 0), 64);

    EXPECT_GE(GetMemoryPerBufferMB(19), 8);
}

TEST(MemoryStatus, SizesAreWholeMegabytesCutTo4GBForA32BitGuest) {
    const int64_t eightGB = int64_t{8} << 30;
    EXPECT_EQ(ReportedMemoryMB(eightGB, true), 4096);
    EXPECT_EQ(ReportedMemoryMB(eightGB, false), 8192);
    EXPECT_EQ(ReportedMemoryMB((int64_t{3} << 30) + (1 << 20) - 1, true), 3072);
}
