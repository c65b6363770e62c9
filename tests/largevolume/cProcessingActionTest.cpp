#include <gtest/gtest.h>

#include <vector>

#include "largevolume/StackFiles.h"
#include "largevolume/cTLBInversion.h"

using namespace Ovidane;
using namespace OvidaneTest;

TEST(cTLBInversion, MapsTheRangeOntoItselfAndFloorsAtTheSmallNumber) {
    // Stack range 10 .. 200: the ends swap, the middle stays, and values that turn to 0 or
    // below come out as the floor (1e-20 as a float).
    const cFloatImagePtr image = MakePlane(3, 2, {200.0f, 10.0f, 105.0f, 210.0f, 300.0f, 17.5f});
    cFloatImagePtr pointer = image;
    cTLBInversion inversion(200.0f, 10.0f);
    EXPECT_EQ(inversion.Process(pointer, 0), 0);
    EXPECT_EQ(pointer.Get(), image.Get());
    EXPECT_EQ(PlaneValues(*image),
              (std::vector<float>{10.0f, 200.0f, 105.0f, 1e-20f, 1e-20f, 192.5f}));
    EXPECT_EQ(inversion.Finish(), 0);
}
