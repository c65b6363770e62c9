#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "core/cThreadIdManager.h"
#include "platform/Platform.h"

using namespace Ovidane;

TEST(cThreadIdManager, UnknownThreadIsItsOwnLogicalThreadAndGetsNoEntry) {
    cThreadIdManager manager;
    EXPECT_EQ(manager.GetObjectName(), "cThreadIdManager");
    EXPECT_EQ(manager.GetLogicalThreadId(4242), 4242u);
    EXPECT_EQ(manager.EntryCount(), 0u);
}

TEST(cThreadIdManager, EntriesAreCreatedReplacedAndRemoved) {
    cThreadIdManager manager;
    manager.SetLogicalThreadId(10, 1);
    manager.SetLogicalThreadId(11, 1);
    manager.SetLogicalThreadId(10, 2);
    EXPECT_EQ(manager.GetLogicalThreadId(10), 2u);
    EXPECT_EQ(manager.GetLogicalThreadId(11), 1u);
    EXPECT_EQ(manager.EntryCount(), 2u);
    manager.RemoveThreadId(10);
    manager.RemoveThreadId(99); // absent: nothing happens
    EXPECT_EQ(manager.GetLogicalThreadId(10), 10u);
    EXPECT_EQ(manager.EntryCount(), 1u);
}

TEST(cThreadIdManager, WorkerActsUnderItsCallersIdentity) {
    cThreadIdManager& manager = cThreadIdManager::Instance();
    EXPECT_EQ(&manager, &cThreadIdManager::Instance());
    const uint32_t caller = Platform::CurrentThreadId();
    EXPECT_EQ(manager.CurrentLogicalThreadId(), caller);

    constexpr int kWorkers = 4;
    std::vector<uint32_t> seen(kWorkers), seenAfterRemoval(kWorkers);
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&, w] {
            const uint32_t self = Platform::CurrentThreadId();
            for (int round = 0; round < 500; ++round) {
                manager.SetLogicalThreadId(self, caller);
                seen[w] = manager.CurrentLogicalThreadId();
                manager.RemoveThreadId(self);
                seenAfterRemoval[w] = manager.CurrentLogicalThreadId();
                if (seen[w] != caller || seenAfterRemoval[w] != self)
                    return;
            }
        });
    }
    for (auto& worker : workers)
        worker.join();
    for (int w = 0; w < kWorkers; ++w) {
        EXPECT_EQ(seen[w], caller);
        EXPECT_NE(seenAfterRemoval[w], caller);
    }
    EXPECT_EQ(manager.EntryCount(), 0u);
}
