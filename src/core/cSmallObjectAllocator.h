#pragma once
#include <cstddef>

namespace Ovidane {

// Pool for tiny objects (the count words of cCountedPtr above all): chunks of 4096 bytes,
// objects up to 256 bytes, 4-byte alignment; larger requests go to the ordinary heap.
// Every call runs under the allocator's class-level lock. The pool lives until the very
// end of the process, after every singleton that may still give back a count word.
class cSmallObjectAllocator {
public:
    static void* Allocate(std::size_t bytes);
    static void Deallocate(void* pointer, std::size_t bytes);
};

} // namespace Ovidane
