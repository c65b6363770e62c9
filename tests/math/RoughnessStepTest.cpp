#include <gtest/gtest.h>

#include "math/RoughnessStep.h"
#include "math/cImageMathGeneric.h"
#include "math/cImageMathHighway.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

// The one-walk step must give what the square roots and the penalty of the vector back end
// give, bit for bit: on a plane, on two slices (faces only), across the row blocks of a
// tall slice, on slices too narrow to have an interior, and with pixels at or below zero.
TEST(RoughnessStep, EqualsSquareRootThenPenaltyBitForBit) {
    const cImageDimensions sizes[] = {{7, 5, 1}, {9, 6, 2}, {5, 40, 4}, {2, 6, 3}, {33, 19, 5}};
    cImageMathHighway math(new cImageMathGeneric);
    for (const cImageDimensions& size : sizes) {
        SCOPED_TRACE(testing::Message() << size.x << "x" << size.y << "x" << size.z);
        const cFloatImagePtr estimate = Random(size, 3, -0.5f, 50.0f);
        const cFloatImagePtr expected = Copy(estimate), roots = MakeImage(size);
        math.SquareRootImage(expected, roots);
        math.GoodsRoughnessPenalty(expected, roots, MakeImage(size), 0.02f);
        const cFloatImagePtr out = MakeImage(size);
        GoodsRoughnessStep(*estimate, *out, 0.02f);
        ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
            ASSERT_EQ(At(out, x, y, z), At(expected, x, y, z)) << x << "," << y << "," << z;
        });
    }
}
