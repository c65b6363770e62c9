#include "core/cWorkerThreads.h"

#include <algorithm>
#include <atomic>

#include "platform/Platform.h"

namespace Ovidane {
namespace {
std::atomic<int> sRequested{0}; // 0: all processors
}

int cWorkerThreads::Count() {
    const int requested = sRequested.load(std::memory_order_relaxed);
    if (requested > 0)
        return requested;
    // Asked once: the system answers by reading a file, and every parallel operation asks.
    static const int processors = std::max(1, Platform::ProcessorCount());
    return processors;
}

void cWorkerThreads::SetCount(int count) {
    sRequested.store(count > 0 ? count : 0, std::memory_order_relaxed);
}

} // namespace Ovidane
