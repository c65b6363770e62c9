#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "core/cCountedPtr.h"
#include "image/cMemoryBlock.h"

namespace Ovidane {

template <class T> using cBlockArray = std::vector<cCountedPtr<cMemoryBlock<T>>>;

// Per-thread pools of pixel memory, one per logical thread.
class cMemoryManagerContainer {
public:
    static cMemoryManagerContainer& Instance();

    // Fills `blocks` with either `count` locked blocks of `elements` each or one locked
    // block of elements*count; the caller tells the two answers apart by the array's size.
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<float>& blocks, const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint32_t>& blocks, const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint16_t>& blocks, const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint8_t>& blocks, const std::string& owner);

    void ReportOwners();
    void ReportBlockUse();
    void ReleaseThreadMemory();
};

} // namespace Ovidane
