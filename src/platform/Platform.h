#pragma once
// The only door to the operating system. Everything else in the library asks these
// functions instead of including system headers, so a port touches this pair alone.
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace Ovidane::Platform {

// Free bytes available to the calling user on the file system holding `path`;
// -1 when the query fails (callers treat that as "no space").
int64_t FreeDiskBytes(const std::string& path);

struct MemoryStatus {
    int64_t totalPhysical = 0;
    int64_t availablePhysical = 0;
    int64_t totalVirtual = 0;
    int64_t availableVirtual = 0;
};
MemoryStatus QueryMemoryStatus();

// Kernel id of the calling thread (stable for the thread's life, unique among live threads).
uint32_t CurrentThreadId();

// Id of this process, unique among the processes alive beside it.
uint32_t CurrentProcessId();

// Monotonic clock in nanoseconds since an arbitrary origin.
uint64_t MonotonicNanoseconds();

// Wall time since the library was loaded, in milliseconds. This is the run's clock for
// timing lines and time-left estimates; processor time would count every worker thread.
int64_t ProcessClockMilliseconds();

// The most physical memory this process has held at once so far, in bytes.
int64_t PeakResidentBytes();

// Asks the system to back [region, region + bytes) with huge pages when it can: a stack-sized
// buffer then costs hundreds of times fewer page faults when it is first written. A hint:
// nothing changes where the system has no such pages.
void PreferHugePages(void* region, std::size_t bytes);

// Number of processors available to this process.
int ProcessorCount();

// A loop whose items may run on several threads at once: body(context, item) for every item
// in [0, count). The platform layer has no threads of its own; the worker pool above it
// installs its loop at load time, and until then the items run in order on the caller.
using ParallelBody = void (*)(void* context, int64_t item);
using ParallelLoop = void (*)(int64_t count, void* context, ParallelBody body);
void SetParallelLoop(ParallelLoop loop);
void RunParallel(int64_t count, void* context, ParallelBody body);

// A re-entrant mutex: the same thread may lock it again while it holds it.
class cRecursiveMutex {
public:
    void Lock() { mMutex.lock(); }
    void Unlock() { mMutex.unlock(); }

private:
    std::recursive_mutex mMutex;
};

} // namespace Ovidane::Platform
