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

// The number of bytes one subvolume may take on this machine, or under the run memory
// limit when one is set: the limit is then shared by the working images of the mode as the
// physical memory would be, and a limit above what the machine gives changes nothing.
// `extraImages` are the images a restoration method holds beyond the inverse filter's
// (an iterative method's estimates and acceleration); they share the budget as well.
int64_t GetSubvolumeMemoryBudget(int mode, uint32_t extraImages = 0);

// What a whole run may hold, in bytes: the host's limit, or without one the machine's
// physical memory less what is left to the system.
int64_t GetRunMemoryLimit();

// What a run may hold beyond the peak working set of restoring subvolumes of
// `subvolumeBytes` per image: the host's limit, or without one the machine's physical
// memory less what is left to the system, minus the 16 images a restoration is given under
// a host's limit. 0 when nothing is left.
int64_t GetSpareRunMemory(int64_t subvolumeBytes);

// What a run may hold beside one restoration of subvolumes of `subvolumeBytes` per image,
// counted by what a restoration was measured to hold at its peak (plus `extraImages` of its
// method) rather than by the images it is given: what a blending of the restorations as they
// come may take. 0 when nothing is left.
int64_t GetRoomBesideRestoration(int64_t subvolumeBytes, uint32_t extraImages = 0);

// The images a restoration under a host's limit is given: those of the inverse filter's
// peak, plus `extraImages` of the method.
uint32_t HostLimitImages(uint32_t extraImages = 0);

// What the runs that start from now on may plan with in all, in bytes, in place of the
// machine's physical memory. 0 or less: no limit, the machine decides (the default). A
// process-wide setting, like the worker thread count.
void SetRunMemoryBudget(int64_t bytes);
int64_t GetRunMemoryBudget();

} // namespace Ovidane
