#pragma once
#include <cstdint>
#include <string>

#include "core/cOvdObject.h"

namespace Ovidane {

// Pixel type codes of memory requests.
enum ovdPixelType : uint32_t {
    OvdTypeUnsignedChar = 1,
    ovdTypeUnsignedShort = 2,
    ovdTypeUnsignedInt = 3,
    OvdTypeReal = 4,
};

// One piece of pixel memory: cut from a pool region by the memory manager, or wrapping
// memory that belongs to someone else. Owns nothing; the region belongs to the manager.
template <class T> class cMemoryBlock : cOvdObject {
public:
    cMemoryBlock() = default;
    cMemoryBlock(T* start, uint32_t size, T* region)
        : start(start), last(size ? start + size - 1 : start), region(region), size(size) {}
    ~cMemoryBlock() override = default;

    bool locked = false;
    T* start = nullptr;
    T* last = nullptr;   // address of the last element, not one past it
    T* region = nullptr; // null for wrapped memory and for shells whose region was freed
    uint32_t size = 0;   // elements
    std::string owner;
};

} // namespace Ovidane
