#include <gtest/gtest.h>

#include <vector>

#include "largevolume/cSlicesAsStored.h"
#include "support/RawStack.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

// Slices read in batches of any size, across the batches' ends, are those a plain read of
// each slice gives, for 8-bit, 16-bit and float stacks; a file that ends inside a batch is
// reported when that batch is due.
TEST(cSlicesAsStored, SlicesInBatchesAreThoseReadOneByOne) {
    const cImageDimensions stack{13, 7, 5}, plane{13, 7, 1};
    std::vector<float> values(stack.Voxels());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = float((i * 7919) % 251);
    TempDir dir;
    for (uint32_t bytes : {1u, 2u, 4u}) {
        const std::string file = dir.File("stack" + std::to_string(bytes) + ".raw");
        const auto write = [&](std::size_t count) {
            WriteRawOfBytes(file, {values.begin(), values.begin() + count}, bytes);
        };
        const uint64_t sliceBytes = plane.Voxels() * bytes;
        for (uint64_t batch : {uint64_t{1}, sliceBytes * 3 / 2, sliceBytes * 2, sliceBytes * 9}) {
            SCOPED_TRACE(::testing::Message()
                         << bytes << "-byte pixels, " << batch << "-byte batches");
            write(values.size());
            cUnmanagedRawFileReader reader(file, stack.x, stack.y, stack.z);
            reader.SetPixelBytes(bytes);
            ASSERT_TRUE(reader.Open());
            cSlicesAsStored slices(reader, plane, stack.z, bytes, "test", batch);
            for (uint32_t z = 0; z < stack.z; ++z) {
                const cFloatImagePtr got = Constant(plane, -1.0f), want = Constant(plane, -2.0f);
                ASSERT_TRUE(slices.Read(z, got));
                cUnmanagedRawFileReader plain(file, stack.x, stack.y, stack.z);
                plain.SetPixelBytes(bytes);
                ASSERT_TRUE(plain.Open());
                ASSERT_TRUE(plain.ReadRegionFloat(want, 0, 0, z, stack.x - 1, stack.y - 1, z));
                EXPECT_EQ(Pixels(got), Pixels(want)) << "slice " << z;
            }
            // The file loses its last slice.
            write(values.size() - plane.Voxels());
            cUnmanagedRawFileReader shorter(file, stack.x, stack.y, stack.z);
            shorter.SetPixelBytes(bytes);
            ASSERT_TRUE(shorter.Open());
            cSlicesAsStored cut(shorter, plane, stack.z, bytes, "test", batch);
            bool all = true;
            for (uint32_t z = 0; z < stack.z && all; ++z)
                all = cut.Read(z, Constant(plane, 0.0f));
            EXPECT_FALSE(all);
        }
    }
}
