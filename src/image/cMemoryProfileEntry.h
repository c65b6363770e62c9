#pragma once
#include <cstdint>
#include <string>
#include <type_traits>

#include "core/cOvdObject.h"

namespace Ovidane {

// What one owner has taken from the heap through the memory manager over the manager's
// life: allocation counts and bytes per pixel type, in the order Real, Int, Short, Char.
class cMemoryProfileEntry : public cOvdObject {
public:
    explicit cMemoryProfileEntry(std::string owner);
    ~cMemoryProfileEntry() override = default;

    // One counter pair per element type: float, uint32_t, uint16_t, uint8_t.
    template <class T> void Add(uint32_t count, uint64_t bytes);

    const std::string& GetOwner() const { return mOwner; }
    uint32_t GetCount(int typeIndex) const { return mCounts[typeIndex]; }
    uint64_t GetBytes(int typeIndex) const { return mBytes[typeIndex]; }
    uint64_t TotalCount() const;
    uint64_t TotalBytes() const;

    // Index of an element type in the counter arrays.
    template <class T> static constexpr int TypeIndex();

private:
    std::string mOwner;
    uint32_t mCounts[4] = {0, 0, 0, 0};
    // Wider than the counts: one owner's total easily passes 4 GB in a long run.
    uint64_t mBytes[4] = {0, 0, 0, 0};
};

template <class T> constexpr int cMemoryProfileEntry::TypeIndex() {
    if constexpr (std::is_same_v<T, float>)
        return 0;
    else if constexpr (std::is_same_v<T, uint32_t>)
        return 1;
    else if constexpr (std::is_same_v<T, uint16_t>)
        return 2;
    else {
        static_assert(std::is_same_v<T, uint8_t>, "no pixel type");
        return 3;
    }
}

template <class T> void cMemoryProfileEntry::Add(uint32_t count, uint64_t bytes) {
    mCounts[TypeIndex<T>()] += count;
    mBytes[TypeIndex<T>()] += bytes;
}

} // namespace Ovidane
