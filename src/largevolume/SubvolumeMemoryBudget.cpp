#include "largevolume/SubvolumeMemoryBudget.h"

#include "image/MemoryStatus.h"

namespace Ovidane {

uint32_t SubvolumeWorkingImageCount(int mode) {
    switch (mode) {
    case 1:
        return 8;
    case 4:
        return 12;
    default:
        return 19;
    }
}

int64_t SubvolumeMemoryBudget(uint32_t workingImages, int64_t totalPhysicalMB,
                              int64_t memoryPerBufferMB) {
    constexpr int64_t kLeftToSystemMB = 200;
    constexpr int64_t kMB = 1048576;
    // The share is worked out in single precision, as a float divided by the count.
    const auto usable =
        static_cast<float>(static_cast<double>(totalPhysicalMB - kLeftToSystemMB) * 1024 * 1024);
    const auto share = static_cast<int64_t>(usable / static_cast<float>(workingImages));
    // What the memory service can give per buffer caps the physical share.
    if (share / kMB <= memoryPerBufferMB)
        return share;
    return memoryPerBufferMB * kMB;
}

// The one place that asks the machine.
int64_t GetSubvolumeMemoryBudget(int mode) {
    const uint32_t workingImages = SubvolumeWorkingImageCount(mode);
    return SubvolumeMemoryBudget(workingImages, GetTotalPhysicalMemoryMB(),
                                 GetMemoryPerBufferMB(workingImages));
}

} // namespace Ovidane
