#pragma once
#include <cstdint>

namespace Ovidane {

// Memory sizes of the machine and the process, in whole megabytes (bytes shifted right by
// 20). The subvolume budget is worked out from these; the memory manager itself sets no
// limit.
int64_t GetTotalPhysicalMemoryMB();
int64_t GetAvailablePhysicalMemoryMB();
int64_t GetTotalVirtualMemoryMB();
int64_t GetAvailableVirtualMemoryMB();

// Megabytes for each of `buffers` equally sized buffers, never below 8.
int64_t GetMemoryPerBufferMB(int64_t buffers);

// The arithmetic of GetMemoryPerBufferMB on given amounts of available memory.
int64_t MemoryPerBufferMB(int64_t availablePhysicalMB, int64_t availableVirtualMB, int64_t buffers);

// True for a 32-bit process on a 64-bit system: such a process can't address more than
// 4 GB whatever the machine has, so every size it is told is cut to 4096 MB.
bool IsWow64();
int64_t ReportedMemoryMB(int64_t bytes, bool wow64);

} // namespace Ovidane
