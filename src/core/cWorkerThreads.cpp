#include "core/cWorkerThreads.h"

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
    const int processors = Platform::ProcessorCount();
    return processors > 0 ? processors : 1;
}

void cWorkerThreads::SetCount(int count) {
    sRequested.store(count > 0 ? count : 0, std::memory_order_relaxed);
}

} // namespace Ovidane
