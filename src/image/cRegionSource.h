#pragma once
#include <cstddef>

namespace Ovidane {

// Where the memory manager's regions come from. A region starts on a 64-byte boundary
// (the transforms and the vector code rely on that), and a refusal is a null answer, so
// that the manager can fall back to smaller regions instead of ending the process.
//
// The process-wide source is the heap. Another one may be installed (tests put a heap of
// limited size in its place); a manager keeps the source that was installed when it was
// made, so a source must outlive every manager made while it was installed.
class cRegionSource {
public:
    static constexpr std::size_t kAlignment = 64;

    virtual ~cRegionSource() = default;

    // `bytes` is never 0. Null when the source refuses.
    virtual void* Acquire(std::size_t bytes) = 0;
    // Gives back a region that this source handed out.
    virtual void Release(void* region) = 0;

    // The heap, the source that is installed at first.
    static cRegionSource& Heap();
    static cRegionSource& Current();
    // Installs `source` for managers made from now on and answers the one it replaces.
    static cRegionSource& Install(cRegionSource& source);
};

} // namespace Ovidane
