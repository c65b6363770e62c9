#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "core/cThreadIdManager.h"
#include "platform/Platform.h"

using namespace Ovidane;

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
