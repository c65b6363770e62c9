#include "platform/Platform.h"

#include <atomic>
#include <chrono>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace Ovidane::Platform {

int64_t FreeDiskBytes(const std::string& path) {
    struct statvfs fs {};
    if (path.empty() || ::statvfs(path.c_str(), &fs) != 0)
        return -1;
    return static_cast<int64_t>(fs.f_bavail) * static_cast<int64_t>(fs.f_frsize);
}

MemoryStatus QueryMemoryStatus() {
    MemoryStatus status;
    struct sysinfo info {};
    if (::sysinfo(&info) != 0)
        return status;
    const int64_t unit = info.mem_unit ? info.mem_unit : 1;
    status.totalPhysical = static_cast<int64_t>(info.totalram) * unit;
    // Page cache can be reclaimed at once, so it counts as available like the kernel's
    // own MemAvailable estimate does; sysinfo lacks that field, bufferram is the closest.
    status.availablePhysical = static_cast<int64_t>(info.freeram + info.bufferram) * unit;
    struct rlimit limit {};
    const int64_t addressSpace = (::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
                                     ? static_cast<int64_t>(limit.rlim_cur)
                                     : (int64_t{1} << 47);
    status.totalVirtual = addressSpace;
    status.availableVirtual = addressSpace;
    return status;
}

// Kept per thread: the memory pools and logs ask on every image they hand out.
uint32_t CurrentThreadId() {
    thread_local const auto id = static_cast<uint32_t>(::syscall(SYS_gettid));
    return id;
}

uint32_t CurrentProcessId() { return static_cast<uint32_t>(::getpid()); }

uint64_t MonotonicNanoseconds() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

namespace {
const uint64_t gLoadTime = MonotonicNanoseconds();
}

int64_t ProcessClockMilliseconds() {
    return static_cast<int64_t>((MonotonicNanoseconds() - gLoadTime) / 1000000);
}

int64_t PeakResidentBytes() {
    rusage usage{};
    if (::getrusage(RUSAGE_SELF, &usage) != 0)
        return -1;
    return int64_t(usage.ru_maxrss) * 1024; // reported in kilobytes
}

void PreferHugePages(void* region, std::size_t bytes) {
    ::madvise(region, bytes, MADV_HUGEPAGE);
}

int ProcessorCount() {
    const long n = ::sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? static_cast<int>(n) : 1;
}

namespace {
std::atomic<ParallelLoop> gParallelLoop{nullptr};
} // namespace

void SetParallelLoop(ParallelLoop loop) {
    gParallelLoop.store(loop);
}

void RunParallel(int64_t count, void* context, ParallelBody body) {
    if (const ParallelLoop loop = gParallelLoop.load()) {
        loop(count, context, body);
        return;
    }
    for (int64_t item = 0; item < count; ++item)
        body(context, item);
}

} // namespace Ovidane::Platform
