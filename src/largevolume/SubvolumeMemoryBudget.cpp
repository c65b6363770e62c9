#include "largevolume/SubvolumeMemoryBudget.h"

#include <algorithm>
#include <atomic>

#include "image/MemoryStatus.h"

namespace Ovidane {
namespace {
std::atomic<int64_t> gRunMemoryBudget{0};

// A host's limit is a promise about resident memory, so it is shared by what a restoration
// holds at its peak, not by the images it plans with. 16 images of the padded size was that
// peak when the cut was sized by it (image, PSF, result, the transform's half spectra, the
// regularisation's spectra, the pool's spare regions and the PSF a cut shares, about 14,
// and the slices of the passes around the cut); it stays, since a new count would cut every
// stack anew at a given limit.
constexpr uint32_t kHostLimitImages = 16;
// What a restoration of the inverse filter holds at its peak now: under 7 images (a
// 1024x1024x64 stack peaks at 230 MB of resident memory under 512 MB with 320x320x80
// subvolumes, and at 333 MB under 1 GB with 400x400x80 ones, 6 MB of either before the
// run). Room beside a restoration is counted against 12, a margin of 5 for other methods
// and sizes.
constexpr uint32_t kRestorationPeakImages = 12;
constexpr int64_t kMB = 1048576;
constexpr int64_t kLeftToSystemMB = 200;
} // namespace

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
uint32_t HostLimitImages(uint32_t extraImages) {
    return kHostLimitImages + extraImages;
}

int64_t GetSubvolumeMemoryBudget(int mode, uint32_t extraImages) {
    const uint32_t workingImages = SubvolumeWorkingImageCount(mode) + extraImages;
    const int64_t machine = SubvolumeMemoryBudget(workingImages, GetTotalPhysicalMemoryMB(),
                                                  GetMemoryPerBufferMB(workingImages));
    const int64_t limit = gRunMemoryBudget.load();
    if (limit <= 0)
        return machine;
    // The host's limit is the whole run's: nothing is held back for the system, since the
    // host has already decided what the run may have. At least one byte, so that the
    // dynamic cut never mistakes the share for "work it out".
    const int64_t share = limit / std::max(workingImages, HostLimitImages(extraImages));
    return std::max<int64_t>(1, std::min(share, machine));
}

int64_t GetRunMemoryLimit() {
    const int64_t total = (GetTotalPhysicalMemoryMB() - kLeftToSystemMB) * kMB;
    const int64_t limit = gRunMemoryBudget.load();
    return limit > 0 ? std::min(total, limit) : total;
}

int64_t GetSpareRunMemory(int64_t subvolumeBytes) {
    return std::max<int64_t>(0, GetRunMemoryLimit() - int64_t{kHostLimitImages} * subvolumeBytes);
}

int64_t GetRoomBesideRestoration(int64_t subvolumeBytes, uint32_t extraImages) {
    const int64_t held = int64_t{kRestorationPeakImages + extraImages} * subvolumeBytes;
    return std::max<int64_t>(0, GetRunMemoryLimit() - held);
}

void SetRunMemoryBudget(int64_t bytes) {
    gRunMemoryBudget.store(bytes > 0 ? bytes : 0);
}

int64_t GetRunMemoryBudget() {
    return gRunMemoryBudget.load();
}

} // namespace Ovidane
