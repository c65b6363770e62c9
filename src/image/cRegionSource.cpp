#include "image/cRegionSource.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace Ovidane {
namespace {

class cHeapRegionSource : public cRegionSource {
public:
    void* Acquire(std::size_t bytes) override {
        // aligned_alloc wants a multiple of the alignment; a size so large that rounding
        // overflows is a refusal like any other.
        if (bytes > SIZE_MAX - (kAlignment - 1))
            return nullptr;
        const std::size_t rounded = (bytes + kAlignment - 1) / kAlignment * kAlignment;
        return std::aligned_alloc(kAlignment, rounded);
    }
    void Release(void* region) override { std::free(region); }
};

std::atomic<cRegionSource*>& Installed() {
    static std::atomic<cRegionSource*> installed{&cRegionSource::Heap()};
    return installed;
}

} // namespace

cRegionSource& cRegionSource::Heap() {
    // Never destroyed: managers that go at exit still give their regions back to it.
    static cHeapRegionSource* heap = new cHeapRegionSource;
    return *heap;
}

cRegionSource& cRegionSource::Current() {
    return *Installed().load(std::memory_order_acquire);
}

cRegionSource& cRegionSource::Install(cRegionSource& source) {
    return *Installed().exchange(&source, std::memory_order_acq_rel);
}

} // namespace Ovidane
