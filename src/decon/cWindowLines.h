#pragma once
#include <cstdint>

#include "core/cImageDimensions.h"

namespace Ovidane {

// A window of a stack whose pixels lie elsewhere than in a float image of its own (in rows
// of the stack file held as the file holds them, say), read a line at a time as floats.
class cWindowLines {
public:
    virtual ~cWindowLines() = default;

    virtual cImageDimensions Size() const = 0;
    // Writes `count` floats of line y of slice z, from column x on, to `out`. Called on any
    // thread, for lines inside the window.
    virtual void Line(uint32_t x, uint32_t y, uint32_t z, uint32_t count, float* out) const = 0;
};

} // namespace Ovidane
