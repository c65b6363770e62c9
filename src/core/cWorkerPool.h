#pragma once
#include <cstdint>
#include <type_traits>

namespace Ovidane {

// The worker threads that heavy operations fan out over. An idle worker watches for the
// next operation for a few microseconds, then blocks on a condition variable: a run shares
// its machine with other processes, and a worker that spins between two operations takes a
// core that the caller's own thread, or another program, needs.
//
// ForEach hands the items out in fixed contiguous blocks, claimed in ascending order by
// whichever thread is free, the caller's among them; a worker that the system wakes late
// therefore delays nobody. The result is the same for any thread count as long as each item
// writes only its own output. A ForEach made inside a task, or while another thread of the
// host has the workers, runs on the calling thread alone.
class cWorkerPool {
public:
    // Calls task(item, worker) for every item in [0, items), on at most `threads` threads;
    // worker is in [0, threads) and no two tasks with the same worker run at once, so it can
    // index per-thread scratch. Blocks claimed earlier hold lower items, and each thread
    // runs a block's items in ascending order.
    template <class Task> static void ForEach(int64_t items, int threads, Task&& task) {
        using Body = std::remove_reference_t<Task>;
        Run(
            items, threads,
            [](void* body, int64_t first, int64_t end, int worker) {
                for (int64_t item = first; item < end; ++item)
                    (*static_cast<Body*>(body))(item, worker);
            },
            const_cast<void*>(static_cast<const void*>(&task)));
    }

    using Block = void (*)(void* body, int64_t first, int64_t end, int worker);

private:
    static void Run(int64_t items, int threads, Block block, void* body);
};

} // namespace Ovidane
