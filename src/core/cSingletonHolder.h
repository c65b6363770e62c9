#pragma once
#include <atomic>
#include <cstdlib>

#include "core/ClassLevelLockable.h"
#include "core/cSmallObjectAllocator.h"

namespace Ovidane {

// Lazily made process-wide instance of a service class. The first test runs without the
// lock; the second test and the construction run under the class-level lock of `T`.
// At process exit the instance is destroyed and the pointer cleared, so a later use
// (from another exit handler) makes it anew instead of touching a dead object.
template <class T> class cSingletonHolder {
public:
    static T& Instance() {
        T* instance = sInstance.load(std::memory_order_acquire);
        if (!instance) {
            typename ClassLevelLockable<T>::Lock lock;
            instance = sInstance.load(std::memory_order_relaxed);
            if (!instance) {
                instance = new T();
                sInstance.store(instance, std::memory_order_release);
                // The instance may still give back count words when it goes at exit, so
                // the small-object pool must go after it.
                static const bool registered =
                    (cSmallObjectAllocator::EnsureExists(), std::atexit(&Destroy), true);
                (void)registered;
            }
        }
        return *instance;
    }

    // Destroys the instance now; the next Instance() makes a fresh one.
    static void Destroy() {
        typename ClassLevelLockable<T>::Lock lock;
        delete sInstance.exchange(nullptr);
    }

private:
    static inline std::atomic<T*> sInstance{nullptr};
};

} // namespace Ovidane
