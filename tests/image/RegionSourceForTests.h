#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <new>
#include <sstream>

#include "core/cMessageSink.h"
#include "image/cMemoryManagerContainer.h"
#include "image/cRegionSource.h"

namespace Ovidane::Testing {

// A heap of limited size: refuses a region above `largest` bytes or one that would take
// more than `capacity` bytes in all, and counts what it gives and takes back.
class cLimitedRegionSource : public cRegionSource {
public:
    explicit cLimitedRegionSource(std::size_t largest = SIZE_MAX, std::size_t capacity = SIZE_MAX)
        : mLargest(largest), mCapacity(capacity) {}
    ~cLimitedRegionSource() override {
        for (auto& [region, bytes] : mLive)
            Heap().Release(region);
    }

    void* Acquire(std::size_t bytes) override {
        if (throwOnAcquire)
            throw std::bad_alloc();
        if (bytes > mLargest || bytes > mCapacity - mUsed)
            return nullptr;
        void* region = Heap().Acquire(bytes);
        mLive[region] = bytes;
        mUsed += bytes;
        ++acquired;
        return region;
    }
    void Release(void* region) override {
        mUsed -= mLive.at(region);
        mLive.erase(region);
        ++released;
        Heap().Release(region);
    }

    std::size_t Used() const { return mUsed; }
    std::size_t LiveRegions() const { return mLive.size(); }

    int acquired = 0;
    int released = 0;
    bool throwOnAcquire = false; // fail by throwing instead of answering null

private:
    std::size_t mLargest;
    std::size_t mCapacity;
    std::size_t mUsed = 0;
    std::map<void*, std::size_t> mLive;
};

// What an image does when it goes: unlock its blocks, drop them.
template <class T> void Drop(cBlockArray<T>& blocks) {
    for (auto& block : blocks)
        block->locked = false;
    blocks.clear();
}

// For the lifetime of this object the calling thread's pool is a fresh one on `source`,
// and the process's message lines go to `messages`. Afterwards the pool is gone (the test
// must have dropped its images), and the installed source and the sink are as they were.
class cScopedPool {
public:
    explicit cScopedPool(std::size_t largest = SIZE_MAX) : source(largest) {
        cMessageSink::ToStream(messages);
        cMemoryManagerContainer::Instance().ReleaseThreadMemory();
        mPrevious = &cRegionSource::Install(source);
    }
    ~cScopedPool() {
        cMemoryManagerContainer::Instance().ReleaseThreadMemory();
        cRegionSource::Install(*mPrevious);
        cMessageSink::ToStandardOutput();
    }
    cScopedPool(const cScopedPool&) = delete;
    cScopedPool& operator=(const cScopedPool&) = delete;

    cLimitedRegionSource source;
    std::ostringstream messages;

private:
    cRegionSource* mPrevious = nullptr;
};

} // namespace Ovidane::Testing
