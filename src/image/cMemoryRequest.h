#pragma once
#include <cstdint>

#include "image/cMemoryBlock.h"

namespace Ovidane {

// What the memory manager still has to serve: `count` blocks of `elements` elements of one
// pixel type. A contiguous request may not be broken into single blocks.
struct cMemoryRequest {
    uint32_t elements = 0;
    uint32_t count = 0;
    bool contiguous = false;
    ovdPixelType type = OvdTypeReal;
};

} // namespace Ovidane
