#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "core/cException.h"
#include "image/RegionSourceForTests.h"
#include "image/cMemoryManager.h"

using namespace Ovidane;
using Testing::cLimitedRegionSource;
using Testing::Drop;

namespace {

constexpr uint32_t kSlice = 32 * 32; // elements of one slice
constexpr std::size_t kSliceBytes = kSlice * sizeof(float);

// A quiet manager on a limited heap, its messages caught in `out`.
struct ManagerOn {
    explicit ManagerOn(std::size_t largest = SIZE_MAX, std::size_t capacity = SIZE_MAX)
        : source(largest, capacity), manager(source) {
        manager.SetStreams(out, out);
        manager.SetVerbosity(0);
    }
    cLimitedRegionSource source;
    std::ostringstream out;
    cMemoryManager manager;
};

} // namespace

TEST(cMemoryManager, HeapRefusalFallsBackToSmallerRegions) {
    // Room for one region of 7 slices and one of 3, but not for 10 in one piece.
    ManagerOn m(7 * kSliceBytes, 10 * kSliceBytes);
    cBlockArray<float> blocks;
    m.manager.Allocate(kSlice, 10, blocks, "decon");

    ASSERT_EQ(blocks.size(), 10u);
    const auto& regions = m.manager.GetRegions<float>();
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(m.source.Used(), 10 * kSliceBytes);
    for (float* region : regions)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(region) % 64, 0u);
    // The first seven come from the split, the shed three from a second, smaller region.
    for (uint32_t i = 0; i < 10; ++i) {
        const auto& block = *blocks[i];
        float* region = regions[i < 7 ? 0 : 1];
        const uint32_t index = i < 7 ? i : i - 7;
        EXPECT_TRUE(block.locked);
        EXPECT_EQ(block.owner, "decon");
        EXPECT_EQ(block.region, region);
        EXPECT_EQ(block.start, region + std::size_t{index} * kSlice);
        EXPECT_EQ(block.last, block.start + kSlice - 1);
        EXPECT_EQ(block.size, kSlice);
    }
    EXPECT_EQ(m.manager.GetProfile().size(), 1u);
    EXPECT_EQ(m.manager.GetProfile()[0].GetCount(0), 10u);
    EXPECT_EQ(m.out.str().find("Beginning allocation..."), std::string::npos);
}

TEST(cMemoryManager, PoolServesTheSameSizeAgainAndOnlyExactSizes) {
    ManagerOn m;

    // Plenty of room: ten slices come as one block of ten slices.
    cBlockArray<float> first;
    m.manager.Allocate(kSlice, 10, first, "a");
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0]->size, 10 * kSlice);
    float* const start = first[0]->start;
    Drop(first);

    // The same request again: the same block, no new region, nothing more in the pool.
    cBlockArray<float> second;
    m.manager.Allocate(kSlice, 10, second, "b");
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0]->start, start);
    EXPECT_EQ(second[0]->owner, "b");
    EXPECT_EQ(m.source.acquired, 1);

    // A free block is never cut: four slices while the ten-slice block is free take a new region.
    Drop(second);
    cBlockArray<float> smaller;
    m.manager.Allocate(kSlice, 4, smaller, "c");
    ASSERT_EQ(smaller.size(), 1u);
    EXPECT_EQ(smaller[0]->size, 4 * kSlice);
    EXPECT_EQ(m.source.acquired, 2);
    EXPECT_EQ(m.manager.GetRegions<float>().size(), 2u);
}

TEST(cMemoryManager, PartlyFoundSlicesAreGivenBackBeforeTheSearchForOneBlock) {
    ManagerOn m;
    cRequestList slices{{kSlice, 10, false, OvdTypeReal}};
    m.manager.TryAllocateRegions(slices, "pool", false);
    ASSERT_TRUE(slices.empty());
    const cBlockArray<float> pool = m.manager.GetBlocks<float>();
    ASSERT_EQ(pool.size(), 10u);
    pool[3]->locked = true; // held by some image: only 9 of 10 slices are free

    cBlockArray<float> found;
    bool oneBlock = false;
    m.manager.FindFreeBlocks(kSlice, 10, found, oneBlock, "img");
    EXPECT_TRUE(found.empty());
    EXPECT_FALSE(oneBlock);
    for (uint32_t i = 0; i < 10; ++i)
        EXPECT_EQ(pool[i]->locked, i == 3) << i;

    // With a free block of the whole size, that one answers.
    cRequestList whole{{10 * kSlice, 1, false, OvdTypeReal}};
    m.manager.TryAllocateRegions(whole, "pool", false);
    m.manager.FindFreeBlocks(kSlice, 10, found, oneBlock, "img");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_TRUE(oneBlock);
    EXPECT_EQ(found[0]->size, 10 * kSlice);
    EXPECT_EQ(found[0]->owner, "img");
    for (uint32_t i = 0; i < 10; ++i)
        EXPECT_EQ(pool[i]->locked, i == 3) << i;
}

TEST(cMemoryManager, OnlyRegionsWithoutLockedBlocksAreReleased) {
    ManagerOn m;
    cRequestList first{{kSlice, 3, false, OvdTypeReal}};
    m.manager.TryAllocateRegions(first, "x", false);
    cRequestList second{{kSlice, 3, false, OvdTypeReal}};
    m.manager.TryAllocateRegions(second, "x", false);
    const cBlockArray<float> pool = m.manager.GetBlocks<float>();
    float* const kept = m.manager.GetRegions<float>()[0];
    pool[1]->locked = true;

    m.manager.ReleaseUnusedRegions<float>();
    ASSERT_EQ(m.manager.GetRegions<float>().size(), 1u);
    EXPECT_EQ(m.manager.GetRegions<float>()[0], kept);
    EXPECT_EQ(m.source.released, 1);
    EXPECT_EQ(m.source.LiveRegions(), 1u);
    // The released region's blocks are shells: they stay in the list and answer nothing.
    for (std::size_t i = 0; i < 6; ++i) {
        const auto& b = *pool[i];
        if (i < 3)
            EXPECT_TRUE(b.region == kept && b.size == kSlice) << i;
        else
            EXPECT_TRUE(!b.region && !b.start && !b.last && b.size == 0) << i;
    }
    EXPECT_EQ(m.manager.GetBlocks<float>().size(), 6u);
}

TEST(cMemoryManager, TryAllocateRegionsLeavesExactlyWhatWasRefused) {
    ManagerOn m(1000);
    cRequestList list{{100, 2, false, OvdTypeReal},
                      {2000, 1, false, OvdTypeUnsignedChar},
                      {50, 1, false, OvdTypeReal}};
    m.manager.TryAllocateRegions(list, "x", true);
    // Both float requests share one region of 250 floats; the char region was refused.
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].type, OvdTypeUnsignedChar);
    ASSERT_EQ(m.manager.GetRegions<float>().size(), 1u);
    const auto& blocks = m.manager.GetBlocks<float>();
    ASSERT_EQ(blocks.size(), 2u);
    float* const region = m.manager.GetRegions<float>()[0];
    EXPECT_EQ(blocks[0]->start, region);
    EXPECT_EQ(blocks[0]->size, 200u); // collapsed
    EXPECT_EQ(blocks[1]->start, region + 200);
    EXPECT_FALSE(blocks[0]->locked);
    EXPECT_TRUE(m.manager.GetBlocks<uint8_t>().empty());

    // A source that fails by throwing refuses like one that answers null.
    m.source.throwOnAcquire = true;
    cRequestList more{{10, 1, false, ovdTypeUnsignedShort}};
    EXPECT_NO_THROW(m.manager.TryAllocateRegions(more, "x", true));
    EXPECT_EQ(more.size(), 1u);
}

TEST(cMemoryManager, ServedPartsTakenBackAsIdleAreServedAgainWhole) {
    // Room for ten slices, but an idle block of another size holds six of them: the first
    // pass serves four, frees them with the idle block and serves only the other six.
    ManagerOn m(SIZE_MAX, 10 * kSliceBytes);
    cBlockArray<float> other;
    m.manager.Allocate(6 * kSlice, 1, other, "old");
    Drop(other);

    cBlockArray<float> blocks;
    m.manager.Allocate(kSlice, 10, blocks, "new");
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0]->size, 10 * kSlice);
    EXPECT_EQ(m.source.Used(), 10 * kSliceBytes);
    EXPECT_EQ(m.manager.LockedBlockCount(), 1u);
}

TEST(cMemoryManager, FailureKeepsWhatWasServedAndTheNextRequestSaysSo) {
    ManagerOn m(SIZE_MAX, 6 * kSliceBytes);
    cBlockArray<float> blocks;
    try {
        m.manager.Allocate(kSlice, 10, blocks, "big");
        FAIL() << "ten slices can't fit";
    } catch (const cException& failure) {
        EXPECT_EQ(failure.GetMessage(), "Unable to allocate 2D Contiguous memory");
        EXPECT_EQ(failure.GetCode(), OVD_ERR_MEMORY);
        EXPECT_EQ(failure.GetWhere(), "cMemoryManager");
    }
    EXPECT_TRUE(blocks.empty());
    EXPECT_EQ(m.manager.LockedBlockCount(), 0u);
    m.out.str("");

    // The first request after the failure announces itself when it goes to the heap.
    m.manager.Allocate(2 * kSlice, 1, blocks, "after");
    EXPECT_EQ(blocks.size(), 1u);
    EXPECT_EQ(m.out.str(), "Beginning allocation...\n");
    Drop(blocks);

    // Single slices that were served stay in the pool and answer the next request.
    const int acquired = m.source.acquired;
    m.manager.Allocate(kSlice, 3, blocks, "small");
    EXPECT_EQ(blocks.size(), 3u);
    EXPECT_EQ(m.source.acquired, acquired);

    // A request that may not be split fails with its own message.
    cRequestList contiguous{{kSlice, 10, true, OvdTypeReal}};
    try {
        m.manager.AllocateRequests(contiguous, "big");
        FAIL() << "ten slices can't fit";
    } catch (const cException& failure) {
        EXPECT_EQ(failure.GetCode(), OVD_ERR_MEMORY);
    }
}
