#pragma once
#include <cstddef>
#include <cstdint>
#include <map>

#include "core/ClassLevelLockable.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// Lets a worker thread act under another thread's identity, so that per-thread services
// (memory managers, image math, FFT) find the instance of the thread it works for. A
// thread without an entry is its own logical thread. Every operation takes the class lock.
class cThreadIdManager : public cOvdObject, private ClassLevelLockable<cThreadIdManager> {
public:
    cThreadIdManager();

    static cThreadIdManager& Instance();

    uint32_t GetLogicalThreadId(uint32_t threadId) const;
    // The logical id of the calling thread.
    uint32_t CurrentLogicalThreadId() const;
    void SetLogicalThreadId(uint32_t threadId, uint32_t logicalId);
    void RemoveThreadId(uint32_t threadId);
    std::size_t EntryCount() const;

private:
    using Lock = ClassLevelLockable<cThreadIdManager>::Lock;

    std::map<uint32_t, uint32_t> mLogicalIds;
};

} // namespace Ovidane
