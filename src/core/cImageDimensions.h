#pragma once
#include <cstdint>

namespace Ovidane {

// Size of a stack; x is the fastest axis in memory.
struct cImageDimensions {
    uint32_t x = 0;
    uint32_t y = 0;
    uint32_t z = 0;

    uint64_t Voxels() const { return uint64_t{x} * y * z; }
    bool operator==(const cImageDimensions&) const = default;
};

// A box of pixels, both corners inclusive.
struct cImageBox {
    uint32_t x0 = 0, y0 = 0, z0 = 0, x1 = 0, y1 = 0, z1 = 0;
    bool operator==(const cImageBox&) const = default;
};

struct cImagePosition {
    uint32_t x = 0, y = 0, z = 0;
    bool operator==(const cImagePosition&) const = default;
};

} // namespace Ovidane
