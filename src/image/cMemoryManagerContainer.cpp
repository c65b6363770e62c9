// Provisional pool-less stand-in: every request gets one fresh 64-byte aligned block.
// Replaced by the per-thread pooling manager.
#include "image/cMemoryManagerContainer.h"

#include <cstdlib>
#include <new>

#include "core/cSingletonHolder.h"

namespace Ovidane {

cMemoryManagerContainer& cMemoryManagerContainer::Instance() {
    return cSingletonHolder<cMemoryManagerContainer>::Instance();
}

namespace {
template <class T>
void AllocateOne(uint32_t elements, uint32_t count, cBlockArray<T>& blocks, const std::string& owner) {
    const std::size_t n = std::size_t{elements} * count;
    const std::size_t bytes = ((n * sizeof(T) + 63) / 64) * 64;
    T* memory = static_cast<T*>(std::aligned_alloc(64, bytes ? bytes : 64));
    if (!memory)
        throw std::bad_alloc();
    auto* block = new cMemoryBlock<T>(memory, static_cast<uint32_t>(n), memory);
    block->locked = true;
    block->owner = owner;
    blocks.push_back(block);
}
} // namespace

void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<float>& b, const std::string& o) { AllocateOne(e, c, b, o); }
void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<uint32_t>& b, const std::string& o) { AllocateOne(e, c, b, o); }
void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<uint16_t>& b, const std::string& o) { AllocateOne(e, c, b, o); }
void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<uint8_t>& b, const std::string& o) { AllocateOne(e, c, b, o); }
void cMemoryManagerContainer::ReportOwners() {}
void cMemoryManagerContainer::ReportBlockUse() {}
void cMemoryManagerContainer::ReleaseThreadMemory() {}

} // namespace Ovidane
