#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "core/cException.h"
#include "core/cThreadIdManager.h"
#include "image/RegionSourceForTests.h"
#include "image/cMemoryManagerContainer.h"
#include "platform/Platform.h"

using namespace Ovidane;
using Testing::cScopedPool;
using Testing::Drop;

namespace {

uint32_t CallerId() {
    return cThreadIdManager::Instance().CurrentLogicalThreadId();
}

} // namespace

TEST(cMemoryManagerContainer, ReleasedThreadsManagerGoesWhenItsLastBlockIsUnlocked) {
    cScopedPool pool;
    auto& container = cMemoryManagerContainer::Instance();

    cBlockArray<float> blocks;
    container.Allocate(64, 4, blocks, "run");
    ASSERT_EQ(blocks.size(), 1u);
    container.ReleaseThreadMemory();
    container.ReleaseThreadMemory(); // on the list once
    EXPECT_TRUE(container.HasManager(CallerId())) << "a locked block keeps the manager";
    EXPECT_EQ(pool.source.released, 0);

    Drop(blocks);
    container.ReportBlockUse(); // any operation removes idle released managers on its way out
    EXPECT_FALSE(container.HasManager(CallerId()));
    EXPECT_EQ(pool.source.LiveRegions(), 0u);

    // The next operation makes a fresh manager, no longer on the release list: it keeps
    // its pool when idle.
    container.Allocate(64, 4, blocks, "run");
    EXPECT_EQ(pool.source.acquired, 2);
    Drop(blocks);
    container.ReportOwners();
    EXPECT_TRUE(container.HasManager(CallerId()));
}

TEST(cMemoryManagerContainer, EachLogicalThreadHasItsOwnPool) {
    cScopedPool pool;
    auto& container = cMemoryManagerContainer::Instance();
    const uint32_t caller = CallerId();

    cBlockArray<float> mine;
    container.Allocate(128, 1, mine, "caller");
    float* const callersPixels = mine[0]->start;
    Drop(mine); // free in the caller's pool

    float* workersPixels = nullptr;
    bool workerHadManager = false;
    std::thread([&] {
        cBlockArray<float> blocks;
        container.Allocate(128, 1, blocks, "worker");
        workersPixels = blocks[0]->start;
        workerHadManager = container.HasManager(CallerId());
        Drop(blocks);
        container.ReleaseThreadMemory();
    }).join();
    EXPECT_TRUE(workerHadManager);
    EXPECT_NE(workersPixels, callersPixels)
        << "the caller's free block belongs to the caller's pool";
    EXPECT_TRUE(container.HasManager(caller));
    EXPECT_EQ(pool.source.acquired, 2);
    EXPECT_EQ(pool.source.LiveRegions(), 1u) << "the released worker's region went back";

    // A worker acting for the caller shares the caller's pool.
    std::thread([&] {
        const uint32_t self = Platform::CurrentThreadId();
        cThreadIdManager::Instance().SetLogicalThreadId(self, caller);
        cBlockArray<float> blocks;
        container.Allocate(128, 1, blocks, "helper");
        workersPixels = blocks[0]->start;
        Drop(blocks);
        cThreadIdManager::Instance().RemoveThreadId(self);
    }).join();
    EXPECT_EQ(workersPixels, callersPixels);
    EXPECT_EQ(pool.source.acquired, 2);
}

TEST(cMemoryManagerContainerDeathTest, ManagersAliveAtExitReportAndGoCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a fresh process: the container is made there
    EXPECT_EXIT(
        {
            cMessageSink::ToFunction([](const char* line, void*) { std::fputs(line, stderr); },
                                     nullptr);
            cBlockArray<float> blocks;
            cMemoryManagerContainer::Instance().Allocate(1024, 1, blocks, "at exit");
            cMemoryManagerContainer::Instance().ReportBlockUse();
            std::exit(0); // the block is still locked when the container goes
        },
        ::testing::ExitedWithCode(0),
        "at exit has 1 Real allocations\\.\nTotal Locked Memory = 4096\nTotal All Memory    = "
        "4096");
}
