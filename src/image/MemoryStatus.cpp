#include "image/MemoryStatus.h"

#include <algorithm>

#include "platform/Platform.h"

namespace Ovidane {
namespace {

constexpr int64_t kAddressableMB = 4096;

int64_t Reported(int64_t Platform::MemoryStatus::*field) {
    return ReportedMemoryMB(Platform::QueryMemoryStatus().*field, IsWow64());
}

} // namespace

// The library is built for the process's native word size, so it never runs as a 32-bit
// guest of a 64-bit system.
bool IsWow64() {
    return false;
}

int64_t ReportedMemoryMB(int64_t bytes, bool wow64) {
    const int64_t megabytes = bytes >> 20;
    return wow64 ? std::min(megabytes, kAddressableMB) : megabytes;
}

int64_t GetTotalPhysicalMemoryMB() {
    return Reported(&Platform::MemoryStatus::totalPhysical);
}
int64_t GetAvailablePhysicalMemoryMB() {
    return Reported(&Platform::MemoryStatus::availablePhysical);
}
int64_t GetTotalVirtualMemoryMB() {
    return Reported(&Platform::MemoryStatus::totalVirtual);
}
int64_t GetAvailableVirtualMemoryMB() {
    return Reported(&Platform::MemoryStatus::availableVirtual);
}

int64_t GetMemoryPerBufferMB(int64_t buffers) {
    return MemoryPerBufferMB(GetAvailablePhysicalMemoryMB(), GetAvailableVirtualMemoryMB(),
                             buffers);
}

int64_t MemoryPerBufferMB(int64_t availablePhysicalMB, int64_t availableVirtualMB,
                          int64_t buffers) {
    constexpr int64_t kReserveCapMB = 200;
    constexpr int64_t kFloorMB = 8;
    const int64_t n = std::max<int64_t>(buffers, 1);
    int64_t memory = availablePhysicalMB;
    if (availableVirtualMB <= availablePhysicalMB) {
        // The address space is the scarcer resource: keep back a share of it, the space
        // over half the number of buffers but at most 200 MB. With fewer than two buffers
        // that divisor is 0, and the share is the whole 200 MB.
        const int64_t half = n / 2;
        const int64_t reserve =
            half == 0 ? kReserveCapMB : std::min(availableVirtualMB / half, kReserveCapMB);
        memory = availableVirtualMB - reserve;
    }
    return std::max(memory / n, kFloorMB);
}

} // namespace Ovidane
