#include <gtest/gtest.h>

#include <vector>

#include "largevolume/cTLBInversion.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

TEST(cTLBInversion, MapsTheRangeOntoItselfAndFloorsAtTheSmallNumber) {
    // Stack range 10 .. 200: the ends swap, the middle stays, and values that turn to 0 or
    // below come out as the floor (1e-20 as a float).
    const float values[] = {200.0f, 10.0f, 105.0f, 210.0f, 300.0f, 17.5f};
    const cFloatImagePtr image =
        MakeImage({3, 2, 1}, [&](uint32_t x, uint32_t y, uint32_t) { return values[3 * y + x]; });
    cFloatImagePtr pointer = image;
    cTLBInversion inversion(200.0f, 10.0f);
    EXPECT_EQ(inversion.Process(pointer, 0), 0);
    EXPECT_EQ(pointer.Get(), image.Get());
    EXPECT_EQ(Pixels(image), (std::vector<float>{10.0f, 200.0f, 105.0f, 1e-20f, 1e-20f, 192.5f}));
    EXPECT_EQ(inversion.Finish(), 0);
}
