#include "image/cRegionSource.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "platform/Platform.h"

namespace Ovidane {
namespace {

// Regions from this size on start on a huge-page boundary and ask for huge pages: the page
// faults of first writes into stack-sized buffers were a fifth of a short run's time.
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kHugeRegion = 4 * kHugePage;

class cHeapRegionSource : public cRegionSource {
public:
    void* Acquire(std::size_t bytes) override {
        const std::size_t alignment = bytes >= kHugeRegion ? kHugePage : kAlignment;
        // aligned_alloc wants a multiple of the alignment; a size so large that rounding
        // overflows is a refusal like any other.
        if (bytes > SIZE_MAX - (alignment - 1))
            return nullptr;
        const std::size_t rounded = (bytes + alignment - 1) / alignment * alignment;
        void* region = std::aligned_alloc(alignment, rounded);
        if (region && alignment == kHugePage)
            Platform::PreferHugePages(region, rounded);
        return region;
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
