#pragma once
// What every exported operation that runs holds for its whole duration.
#include <cstddef>

#include "core/ClassLevelLockable.h"

namespace Ovidane {

// One run at a time in a process: the temporary directory, the transform plans and the
// memory pools are process-wide services, so a second call waits here until the first has
// ended. The lock is re-entrant, so a call made from a status callback does not deadlock.
// When the scope ends, every temporary file named during the call is deleted: a call that
// fails, however early, leaves nothing behind, and one that succeeds nothing either. Memory
// files (a run's choice) are deleted the same way.
class ovdRunScope : private ClassLevelLockable<ovdRunScope> {
public:
    ovdRunScope();
    ~ovdRunScope();
    ovdRunScope(const ovdRunScope&) = delete;
    ovdRunScope& operator=(const ovdRunScope&) = delete;

private:
    ClassLevelLockable<ovdRunScope>::Lock mLock;
    std::size_t mFirstName;
    bool mInMemory; // the generator's mode before the call
};

} // namespace Ovidane
