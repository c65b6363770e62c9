#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/ClassLevelLockable.h"
#include "core/cCountedPtr.h"
#include "core/cOvdObject.h"
#include "image/cMemoryManager.h"

namespace Ovidane {

// The per-thread pools of pixel memory: one memory manager per logical thread, made on the
// thread's first operation. Every operation runs under the memory managers' class-level
// lock, works on the calling thread's manager, and before it returns destroys the managers
// of released threads that no longer hold a locked block.
class cMemoryManagerContainer : public cOvdObject,
                                private ClassLevelLockable<cMemoryManagerContainer> {
public:
    cMemoryManagerContainer();
    ~cMemoryManagerContainer() override;

    static cMemoryManagerContainer& Instance();

    // Fills `blocks` with either `count` locked blocks of `elements` each or one locked
    // block of elements*count; the caller tells the two answers apart by the array's size.
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<float>& blocks,
                  const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint32_t>& blocks,
                  const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint16_t>& blocks,
                  const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint8_t>& blocks,
                  const std::string& owner);

    // The calling thread's manager's reports.
    void ReportOwners();
    void ReportBlockUse();
    // The calling thread's manager goes, with its pool, as soon as none of its blocks is
    // locked (at once when none is). A run calls this when it ends.
    void ReleaseThreadMemory();

    // Pixel memory requests so far in the process, on every thread: a loop that is meant to
    // allocate nothing (a restoration pass) can be watched with it.
    static uint64_t AllocationCount();

    bool HasManager(uint32_t logicalThreadId) const;
    std::size_t ManagerCount() const;

private:
    using ManagerLock = cMemoryManager::Lock;

    template <class Body> void OnCallingThreadsManager(Body&& body);
    template <class T>
    void AllocateTyped(uint32_t elements, uint32_t count, cBlockArray<T>& blocks,
                       const std::string& owner);
    void RemoveIdleManagers();

    std::map<uint32_t, cCountedPtr<cMemoryManager>> mManagers;
    std::vector<uint32_t> mReleaseList;
};

} // namespace Ovidane
