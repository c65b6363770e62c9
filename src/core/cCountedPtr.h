#pragma once
#include <cstdint>
#include <new>
#include <utility>

#include "core/cSmallObjectAllocator.h"

namespace Ovidane {

// The counted smart pointer that holds every shared object. The count word comes from
// the small-object pool and exists for an empty pointer too, so copies of an empty
// pointer share one word like any other. Counting is plain, not atomic: a pointer and
// its object stay with one thread unless the caller orders the hand-over.
template <class T> class cCountedPtr {
public:
    cCountedPtr() : cCountedPtr(nullptr) {}
    cCountedPtr(T* object) : mObject(object), mCount(NewCount()) {} // NOLINT: implicit on purpose
    cCountedPtr(const cCountedPtr& other) : mObject(other.mObject), mCount(other.mCount) {
        ++*mCount;
    }
    template <class U>
    cCountedPtr(const cCountedPtr<U>& other) : mObject(other.mObject), mCount(other.mCount) {
        ++*mCount;
    }
    ~cCountedPtr() { Release(); }

    // Takes the reference on the source first, so self-assignment is harmless.
    cCountedPtr& operator=(const cCountedPtr& other) {
        cCountedPtr held(other);
        std::swap(mObject, held.mObject);
        std::swap(mCount, held.mCount);
        return *this;
    }

    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }
    T* Get() const { return mObject; }
    bool IsNull() const { return mObject == nullptr; }
    explicit operator bool() const { return mObject != nullptr; }
    uint32_t UseCount() const { return *mCount; }

    // A pointer to the same object seen as `U` (the caller vouches for the type).
    template <class U> cCountedPtr<U> StaticCast() const {
        return cCountedPtr<U>(static_cast<U*>(mObject), mCount);
    }

private:
    template <class U> friend class cCountedPtr;

    cCountedPtr(T* object, uint32_t* count) : mObject(object), mCount(count) { ++*mCount; }

    static uint32_t* NewCount() {
        return new (cSmallObjectAllocator::Allocate(sizeof(uint32_t))) uint32_t(1);
    }

    void Release() {
        if (--*mCount == 0) {
            cSmallObjectAllocator::Deallocate(mCount, sizeof(uint32_t));
            delete mObject;
        }
    }

    T* mObject;
    uint32_t* mCount;
};

template <class T, class U> bool operator==(const cCountedPtr<T>& a, const cCountedPtr<U>& b) {
    return a.Get() == b.Get();
}

} // namespace Ovidane
