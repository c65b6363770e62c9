#pragma once
#include <cstdint>

namespace Ovidane {

// What the aberration search needs of the restoration that scores a candidate value: a
// one-time preparation of the stack, and an evaluation at the spherical aberration that
// the shared log holds at that moment. Lower results are better.
class cAberrationFigureOfMerit {
public:
    virtual ~cAberrationFigureOfMerit() = default;
    // 0, or the code that ends the search.
    virtual int32_t Prepare() = 0;
    // 0 with the value in GetResult(), or the code of a failure.
    virtual int32_t Evaluate() = 0;
    virtual double GetResult() const = 0;
};

} // namespace Ovidane
