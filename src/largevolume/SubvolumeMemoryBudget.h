#pragma once
#include <cstdint>

namespace Ovidane {

// How many working images of a subvolume's size a budget of this mode must hold:
// mode 1 stands for 8, mode 4 for 12 and every other mode for 19.
uint32_t SubvolumeWorkingImageCount(int mode);

// The bytes one of `workingImages` equal images may take, from the machine's total
// physical memory and what the memory service would give to each of that many buffers,
// both in megabytes. 200 MB of the physical memory are left to the system.
int64_t SubvolumeMemoryBudget(uint32_t workingImages, int64_t totalPhysicalMB,
                              int64_t memoryPerBufferMB);

// The number of bytes one subvolume may take on this machine.
int64_t GetSubvolumeMemoryBudget(int mode);

} // namespace Ovidane
