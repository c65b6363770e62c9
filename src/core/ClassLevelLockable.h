#pragma once
#include "platform/Platform.h"

namespace Ovidane {

// A re-entrant, process-wide critical section per class: every object of `Host` (and
// every static member of it) shares one lock. Scoped through the nested Lock.
template <class Host> class ClassLevelLockable {
public:
    class Lock {
    public:
        Lock() { Mutex().Lock(); }
        explicit Lock(const ClassLevelLockable&) : Lock() {}
        ~Lock() { Mutex().Unlock(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
    };

private:
    static Platform::cRecursiveMutex& Mutex() {
        static Platform::cRecursiveMutex mutex;
        return mutex;
    }
};

} // namespace Ovidane
