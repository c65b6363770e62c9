#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/cWorkerPool.h"

using namespace Ovidane;

// Every item runs exactly once under a worker index below the thread count, also when a
// task fans out again and when two host threads hand out work at the same time (one of them
// then works alone).
TEST(cWorkerPool, EveryItemRunsOnceWithinItsThreadCount) {
    const auto check = [](int64_t items, int threads) {
        std::vector<std::atomic<int>> runs(static_cast<std::size_t>(items));
        std::atomic<int> badWorker{0}, innerRuns{0};
        cWorkerPool::ForEach(items, threads, [&](int64_t item, int worker) {
            runs[static_cast<std::size_t>(item)]++;
            badWorker += worker < 0 || worker >= threads;
            cWorkerPool::ForEach(3, threads, [&](int64_t, int inner) {
                innerRuns++;
                badWorker += inner < 0 || inner >= threads;
            });
        });
        for (const auto& count : runs)
            EXPECT_EQ(count.load(), 1) << items << " items on " << threads << " threads";
        EXPECT_EQ(badWorker.load(), 0);
        EXPECT_EQ(innerRuns.load(), 3 * items);
    };
    for (const int threads : {1, 2, 5})
        for (const int64_t items : {0, 1, 7, 1000})
            check(items, threads);

    std::thread other([&] {
        for (int i = 0; i < 200; ++i)
            check(50, 3);
    });
    for (int i = 0; i < 200; ++i)
        check(50, 3);
    other.join();
}
