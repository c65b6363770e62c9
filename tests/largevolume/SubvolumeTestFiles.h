#pragma once
// The stack pattern the subvolume tests cut and join, and raw files to hold it.
#include <cmath>
#include <cstdint>
#include <vector>

#include "core/cImageDimensions.h"
#include "support/RawStack.h"

namespace OvidaneTest {

struct Stack {
    Ovidane::cImageDimensions size;
    std::vector<float> pixels;

    float At(uint32_t x, uint32_t y, uint32_t z) const {
        return pixels[(std::size_t{z} * size.y + y) * size.x + x];
    }
};

// Positive, different at every pixel and not smooth, so that a pixel taken from the
// wrong place, or weighted wrongly at a seam, shows.
inline Stack PatternStack(Ovidane::cImageDimensions size) {
    Stack stack{size, {}};
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                stack.pixels.push_back(100.0f + 30.0f * z + 0.5f * float((x * 37 + y * 101) % 211) +
                                       10.0f * std::sin(0.3f * float(x)) *
                                           std::cos(0.2f * float(y)));
    return stack;
}

} // namespace OvidaneTest
