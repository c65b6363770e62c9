#include "image/cMemoryProfileEntry.h"

namespace Ovidane {

cMemoryProfileEntry::cMemoryProfileEntry(std::string owner)
    : cOvdObject("cMemoryProfileEntry"), mOwner(std::move(owner)) {}

uint64_t cMemoryProfileEntry::TotalCount() const {
    return uint64_t{mCounts[0]} + mCounts[1] + mCounts[2] + mCounts[3];
}

uint64_t cMemoryProfileEntry::TotalBytes() const {
    return mBytes[0] + mBytes[1] + mBytes[2] + mBytes[3];
}

} // namespace Ovidane
