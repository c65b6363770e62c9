#include <gtest/gtest.h>

#include <vector>

#include "largevolume/StackFiles.h"
#include "largevolume/cLargeVolumeProcessingFramework.h"
#include "largevolume/cSaveProcessResultAction.h"
#include "largevolume/cTLBInversion.h"
#include "math/cImageMathManager.h"
#include "support/TempDir.h"

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

TEST(cSaveProcessResultAction, KeepsTheSliceAsItStandsAtItsPlaceInThePass) {
    TempDir dir;
    const Stack in = MakeStack(
        3, 2, 2, [](uint32_t x, uint32_t y, uint32_t z) { return float(x + 3 * y + 6 * z); });
    WriteStack(dir.File("in"), in);

    // Saved before the inversion; the pass's own output is the inverted stack.
    cSaveProcessResultAction keepFloat(dir.File("float"), 4), keepNothing(dir.File("none"), 3);
    cTLBInversion inversion(11.0f, 0.0f);
    cLargeVolumeProcessingFramework pass(dir.File("in"), 3, 2, 2);
    for (cProcessingAction* action :
         std::vector<cProcessingAction*>{&keepFloat, &keepNothing, &inversion})
        pass.AddAction(action);
    pass.SetOutput(dir.File("out"));
    ASSERT_EQ(pass.Run(), 0);

    EXPECT_EQ(ReadRaw<float>(dir.File("float")), in.v);
    EXPECT_EQ(FileSize(dir.File("none")), 0u);
    std::vector<float> inverted;
    for (float v : in.v)
        inverted.push_back(11.0f - v <= 0.0f ? 1e-20f : 11.0f - v);
    EXPECT_EQ(ReadRaw<float>(dir.File("out")), inverted);
}
