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
    // Makes the pool now if it doesn't exist yet. The pool's end is an exit handler too, and
    // exit handlers run last-registered first: a singleton that gives back count words when
    // it goes calls this before it registers its own handler.
    static void EnsureExists();
};

} // namespace Ovidane
