// The only translation unit that includes Loki: its threading header needs -fpermissive
// with this compiler, which the build confines to this file.
#define LOKI_CLASS_LEVEL_THREADING
#include <loki/SmallObj.h>

#include "core/cSmallObjectAllocator.h"

#include <new>

namespace Ovidane {
namespace {

using Allocator = Loki::AllocatorSingleton<Loki::ClassLevelLockable, 4096, 256, 4,
                                           Loki::LongevityLifetime::DieAsSmallObjectParent>;

struct SmallObjectRefused : std::bad_alloc {
    const char* what() const noexcept override { return "could not allocate small object"; }
};

} // namespace

void* cSmallObjectAllocator::Allocate(std::size_t bytes) {
    if (bytes == 0)
        bytes = 1;
    Allocator::MyThreadingModel::Lock lock;
    // Loki trims unused chunks and retries once on its own before it gives up.
    void* pointer = Allocator::Instance().Allocate(bytes, false);
    if (!pointer)
        throw SmallObjectRefused();
    return pointer;
}

void cSmallObjectAllocator::Deallocate(void* pointer, std::size_t bytes) {
    if (!pointer)
        return;
    if (bytes == 0)
        bytes = 1;
    Allocator::MyThreadingModel::Lock lock;
    Allocator::Instance().Deallocate(pointer, bytes);
}

void cSmallObjectAllocator::EnsureExists() {
    Allocator::MyThreadingModel::Lock lock;
    (void)Allocator::Instance();
}

} // namespace Ovidane
