#include "core/cWorkerPool.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "core/cWorkerThreads.h"
#include "platform/Platform.h"

namespace Ovidane {
namespace {

// Blocks per thread: enough that a thread the system runs late leaves its share to the
// others, few enough that claiming a block costs nothing next to running it.
constexpr int64_t kBlocksPerThread = 4;

// How long an idle worker watches for the next job before it sleeps.
constexpr std::chrono::microseconds kWatch{50};

// Set on a thread while it runs tasks, so that a ForEach inside a task runs inline.
thread_local bool tInsideTask = false;

struct Job {
    cWorkerPool::Block block = nullptr;
    void* body = nullptr;
    int64_t items = 0;
    int64_t blocks = 0;
    int threads = 0;
};

// Operations come in quick succession inside a filter, and a job's last blocks finish
// moments apart: a thread that would sleep first watches for `ready` a few microseconds.
// That spares the system calls of a sleep and a wake-up, and holds a core no longer than
// that when nothing comes. True when `ready` came.
template <class Ready> bool WatchBriefly(const Ready& ready) {
    const auto until = std::chrono::steady_clock::now() + kWatch;
    for (int i = 1; !ready(); ++i) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
        if (i % 64 == 0 && std::chrono::steady_clock::now() > until)
            return ready();
    }
    return true;
}

class Pool {
public:
    // One host thread at a time hands out work; another finds this held and works alone.
    std::mutex mCaller;

    void Run(int64_t items, int threads, cWorkerPool::Block block, void* body) {
        const int64_t blocks = std::min(items, threads * kBlocksPerThread);
        const Job job{block, body, items, blocks, threads};
        {
            std::unique_lock lock(mMutex);
            // A worker that woke only after the last job ended may still be in it, about to
            // find no block left; the job's state can't be reset under it.
            mFinished.wait(lock, [&] { return mJoined == 0; });
            while (mWorkers < threads - 1)
                std::thread(&Pool::Serve, this, ++mWorkers).detach();
            mJob = job;
            mNext.store(0, std::memory_order_relaxed);
            mDone.store(0, std::memory_order_relaxed);
            mGeneration.fetch_add(1, std::memory_order_relaxed);
        }
        mWake.notify_all();
        Work(job, 0);
        // Every block done is all the caller needs; a worker still in the job finds no block
        // left and leaves before the next job resets the state. The last blocks are usually
        // moments from done, so the caller watches before it sleeps.
        const auto allDone = [&] { return mDone.load(std::memory_order_acquire) == blocks; };
        if (!WatchBriefly(allDone)) {
            std::unique_lock lock(mMutex);
            mFinished.wait(lock, allDone);
        }
    }

private:
    std::mutex mMutex; // guards the job and the counts of workers; see the atomics
    std::condition_variable mWake, mFinished;
    int mWorkers = 0;
    std::atomic<uint64_t> mGeneration{0}; // changed under mMutex, watched without it
    Job mJob;
    int mJoined = 0;
    std::atomic<int64_t> mDone{0}; // blocks finished
    std::atomic<int64_t> mNext{0}; // blocks claimed

    // Runs blocks of the job until none is left. A task that throws ends the process, as
    // nothing can unwind the other threads' share.
    void Work(const Job& job, int worker) noexcept {
        tInsideTask = true;
        for (int64_t b; (b = mNext.fetch_add(1, std::memory_order_relaxed)) < job.blocks;) {
            job.block(job.body, b * job.items / job.blocks, (b + 1) * job.items / job.blocks,
                      worker);
            mDone.fetch_add(1, std::memory_order_release);
        }
        tInsideTask = false;
    }

    [[noreturn]] void Serve(int worker) {
        std::unique_lock lock(mMutex);
        uint64_t seen = mGeneration;
        bool busy = false; // only a worker that the jobs use watches for the next one
        for (;;) {
            if (busy && mGeneration.load(std::memory_order_relaxed) == seen) {
                lock.unlock();
                WatchBriefly([&] { return mGeneration.load(std::memory_order_relaxed) != seen; });
                lock.lock();
            }
            mWake.wait(lock, [&] { return mGeneration != seen; });
            seen = mGeneration;
            busy = worker < mJob.threads;
            if (!busy)
                continue;
            const Job job = mJob;
            ++mJoined;
            lock.unlock();
            Work(job, worker);
            lock.lock();
            --mJoined;
            mFinished.notify_all();
        }
    }
};

// Never destroyed: detached workers may still wait on it while the process ends.
Pool& ThePool() {
    static Pool* pool = new Pool;
    return *pool;
}

// The platform layer's parallel loops (large copies of files held in memory) run here.
[[maybe_unused]] const bool kPlatformLoopInstalled = [] {
    Platform::SetParallelLoop([](int64_t count, void* context, Platform::ParallelBody body) {
        cWorkerPool::ForEach(count, cWorkerThreads::Count(),
                             [&](int64_t item, int) { body(context, item); });
    });
    return true;
}();

} // namespace

void cWorkerPool::Run(int64_t items, int threads, Block block, void* body) {
    threads = static_cast<int>(std::min<int64_t>(threads, items));
    if (threads <= 1 || tInsideTask) {
        if (items > 0)
            block(body, 0, items, 0);
        return;
    }
    Pool& pool = ThePool();
    const std::unique_lock caller(pool.mCaller, std::try_to_lock);
    if (caller.owns_lock())
        return pool.Run(items, threads, block, body);
    // Another host thread has the workers: this one works alone, and so do the operations
    // its tasks start, until the work ends or throws.
    struct Alone {
        Alone() { tInsideTask = true; }
        ~Alone() { tInsideTask = false; }
    } alone;
    block(body, 0, items, 0);
}

} // namespace Ovidane
