#include "largevolume/SubvolumeMemoryBudget.h"

#include <algorithm>
#include <atomic>

#include "image/MemoryStatus.h"

namespace Ovidane {
namespace {
std::atomic<int64_t> gRunMemoryBudget{0};

// A host's limit is a promise about resident memory, so it is shared by what a restoration
// really holds at its peak, not by the images it plans with: image, PSF, result, the
// transform's half spectra, the regularisation's spectra and the pool's spare regions come
// to about 13 images of the padded size (measured on 400x400x80 subvolumes), and the PSF
// that the subvolumes of a cut share adds one; 16 leaves room for the slices of the passes
// around the cut.
constexpr uint32_t kHostLimitImages = 16;
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

void SetRunMemoryBudget(int64_t bytes) {
    gRunMemoryBudget.store(bytes > 0 ? bytes : 0);
}

int64_t GetRunMemoryBudget() {
    return gRunMemoryBudget.load();
}

} // namespace Ovidane
