#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "io/cUnmanagedRawFileReader.h"
#include "largevolume/cInputBand.h"
#include "support/RawStack.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

// Windows taken in turn from one band of rows, from another band, and from a band of other
// slices give what reading each window from the file gives, for 8-bit, 16-bit and float
// stacks; a file too short for the band is reported, never converted.
TEST(cInputBand, WindowsFromTheBandAreThoseOfTheFile) {
    const cImageDimensions stack{37, 23, 9};
    std::vector<float> values(stack.Voxels());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = float((i * 7919) % 251);
    const cImageBox windows[] = {
        {0, 2, 1, 14, 12, 7},  {10, 2, 1, 30, 12, 7}, {25, 2, 1, 36, 12, 7}, {0, 5, 1, 14, 12, 7},
        {0, 10, 1, 20, 22, 7}, {3, 10, 0, 35, 22, 8}, {3, 10, 0, 35, 22, 8},
    };
    TempDir dir;
    for (uint32_t bytes : {1u, 2u, 4u}) {
        SCOPED_TRACE(::testing::Message() << bytes << "-byte pixels");
        const std::string file = dir.File("stack" + std::to_string(bytes) + ".raw");
        WriteRawOfBytes(file, values, bytes);
        uint64_t largest = 0;
        for (const cImageBox& box : windows)
            largest = std::max(largest, cInputBand::BytesFor(stack, box, bytes));
        cInputBand band(file, stack, bytes, largest);
        for (const cImageBox& box : windows) {
            const cImageDimensions size{box.x1 - box.x0 + 1, box.y1 - box.y0 + 1,
                                        box.z1 - box.z0 + 1};
            const cFloatImagePtr got = Constant(size, -1.0f), want = Constant(size, -2.0f);
            const std::shared_ptr<const cWindowLines> lines = band.Lines(box);
            ASSERT_TRUE(lines);
            ASSERT_TRUE(lines->Size() == size);
            for (uint32_t z = 0; z < size.z; ++z)
                for (uint32_t y = 0; y < size.y; ++y) {
                    // In two pieces, as the padding asks for runs inside a line.
                    const uint32_t half = size.x / 2;
                    lines->Line(0, y, z, half, got->GetLinePointer(y, z));
                    lines->Line(half, y, z, size.x - half, got->GetLinePointer(y, z) + half);
                }
            cUnmanagedRawFileReader reader(file, stack.x, stack.y, stack.z);
            reader.SetPixelBytes(bytes);
            ASSERT_TRUE(reader.Open());
            ASSERT_TRUE(
                reader.ReadRegionFloat(want, box.x0, box.y0, box.z0, box.x1, box.y1, box.z1));
            EXPECT_EQ(Pixels(got), Pixels(want));
        }
        // The file loses its last slice: a band that needs it can't be made.
        WriteRawOfBytes(file, {values.begin(), values.end() - stack.x * stack.y}, bytes);
        cInputBand cut(file, stack, bytes, largest);
        // Nor is the failed one taken for it the next time.
        for (int again = 0; again < 2; ++again)
            EXPECT_FALSE(cut.Lines({3, 10, 0, 35, 22, 8}));
    }
}
