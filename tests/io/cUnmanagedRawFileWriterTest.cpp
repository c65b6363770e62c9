#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "core/cException.h"
#include "io/RawStackFixtures.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// Writes a pattern stack, checks the file byte by byte, and reads it back.
template <class T> void CheckRoundTrip(const TempDir& dir, uint32_t w, uint32_t h, uint32_t d) {
    SCOPED_TRACE(testing::Message() << sizeof(T) << "-byte pixels, " << w << "x" << h << "x" << d);
    const std::string name =
        dir.File("stack" + std::to_string(sizeof(T)) + "-" + std::to_string(w) + "x" +
                 std::to_string(h) + "x" + std::to_string(d));
    auto image = MakeImage<T>(w, h, d);
    FillPattern(*image);
    {
        cUnmanagedRawFileWriter writer(name);
        ASSERT_TRUE(writer.Open());
        EXPECT_TRUE(writer.Write(image));
        EXPECT_EQ(writer.GetWidth(), w);
        EXPECT_EQ(writer.GetHeight(), h);
        EXPECT_EQ(writer.GetDepth(), d);
        EXPECT_TRUE(writer.Close());
        EXPECT_EQ(writer.GetHandle(), -1);
    }
    EXPECT_EQ(FileBytes(name), PatternFileBytes<T>(w, h, d));

    cUnmanagedRawFileReader reader(name);
    ASSERT_TRUE(reader.Open());
    auto back = MakeImage<T>(w, h, d);
    Fill<T>(*back, T(0));
    ASSERT_TRUE(reader.Read(back));
    for (uint32_t z = 0; z < d; ++z)
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
                ASSERT_EQ(*back->GetPixelPointer(x, y, z), PatternValue<T>(x, y, z))
                    << x << "," << y << "," << z;
    // The whole file has been consumed: one more read comes up short.
    EXPECT_FALSE(reader.Read(back));
}

} // namespace

TEST(cUnmanagedRawFileWriter, EveryPixelTypeGoesOutInFileOrderAndComesBack) {
    TempDir dir;
    CheckRoundTrip<uint8_t>(dir, 7, 5, 3);
    CheckRoundTrip<uint16_t>(dir, 7, 5, 3);
    CheckRoundTrip<float>(dir, 7, 5, 3);
    CheckRoundTrip<float>(dir, 1, 1, 1);
    EXPECT_EQ(std::filesystem::file_size(dir.File("stack4-1x1x1")), 4u);
}

TEST(cUnmanagedRawFileWriter, SliceTableImagesWriteAndReadSliceBySlice) {
    TempDir dir;
    const uint32_t w = 6, h = 4, d = 3;
    // Slices far apart in memory, each in its own vector.
    std::vector<std::vector<float>> slices(d, std::vector<float>(w * h));
    std::vector<float*> table;
    for (auto& slice : slices)
        table.push_back(slice.data());
    cFloatImagePtr image = new cOvdImage<float>(table.data(), w, h, d, Contiguous2D, "slices");
    ASSERT_FALSE(image->IsContiguous3D());
    FillPattern(*image);

    cUnmanagedRawFileWriter writer(dir.File("slices"));
    ASSERT_TRUE(writer.Open());
    EXPECT_TRUE(writer.Write(image));
    EXPECT_TRUE(writer.Close());
    EXPECT_EQ(FileBytes(dir.File("slices")), PatternFileBytes<float>(w, h, d));

    std::vector<std::vector<float>> backSlices(d, std::vector<float>(w * h, -1.0f));
    std::vector<float*> backTable;
    for (auto& slice : backSlices)
        backTable.push_back(slice.data());
    cFloatImagePtr back = new cOvdImage<float>(backTable.data(), w, h, d, Contiguous2D, "back");
    cUnmanagedRawFileReader reader(dir.File("slices"));
    ASSERT_TRUE(reader.Open());
    EXPECT_TRUE(reader.Read(back));
    for (uint32_t z = 0; z < d; ++z)
        for (uint32_t i = 0; i < w * h; ++i)
            ASSERT_EQ(backSlices[z][i], PatternValue<float>(i % w, i / w, z));
}

TEST(cUnmanagedRawFileWriter, WritesAppendAndAnOldLongerFileKeepsItsTail) {
    TempDir dir;
    const std::string name = dir.File("old");
    WriteFileBytes(name, std::vector<uint8_t>(100, 0xAB));

    auto first = MakeImage<float>(2, 2, 1);
    FillPattern(*first);
    auto second = MakeImage<uint16_t>(3, 1, 1);
    FillPattern(*second, 0, 0, 5);
    std::vector<uint8_t> expected = PatternFileBytes<float>(2, 2, 1);
    for (uint32_t x = 0; x < 3; ++x)
        AppendLittleEndian(expected, PatternValue<uint16_t>(x, 0, 5));
    expected.resize(100, 0xAB);

    cUnmanagedRawFileWriter writer(name);
    ASSERT_TRUE(writer.Open());
    EXPECT_TRUE(writer.Write(first));
    EXPECT_TRUE(writer.Write(second));
    EXPECT_EQ(writer.GetPosition(), 22u);
    EXPECT_TRUE(writer.Close());
    EXPECT_EQ(FileBytes(name), expected);

    // Opening again starts at the beginning and still cuts nothing off.
    ASSERT_TRUE(writer.Open());
    EXPECT_EQ(writer.GetPosition(), 0u);
    EXPECT_TRUE(writer.Write(second));
    EXPECT_TRUE(writer.Close());
    for (uint32_t x = 0; x < 3; ++x) {
        const uint16_t v = PatternValue<uint16_t>(x, 0, 5);
        expected[2 * x] = uint8_t(v);
        expected[2 * x + 1] = uint8_t(v >> 8);
    }
    EXPECT_EQ(FileBytes(name), expected);
}

TEST(cUnmanagedRawFileWriter, WriteRegionPacksTheBoxDensely) {
    TempDir dir;
    const uint32_t w = 6, h = 5, d = 4;
    auto contiguous = MakeImage<float>(w, h, d);
    FillPattern(*contiguous);
    std::vector<std::vector<float>> slices(d, std::vector<float>(w * h));
    std::vector<float*> table;
    for (auto& slice : slices)
        table.push_back(slice.data());
    cFloatImagePtr sliced = new cOvdImage<float>(table.data(), w, h, d, Contiguous2D, "slices");
    FillPattern(*sliced);

    struct Box {
        uint32_t x0, y0, z0, x1, y1, z1;
    };
    // Inner box (gathered), full-width rows of part of the height, whole slices, one pixel.
    const Box boxes[] = {
        {1, 2, 1, 3, 4, 2}, {0, 1, 2, 5, 3, 3}, {0, 0, 1, 5, 4, 3}, {5, 4, 3, 5, 4, 3}};
    for (const cFloatImagePtr& image : {contiguous, sliced}) {
        for (const Box& b : boxes) {
            SCOPED_TRACE(testing::Message()
                         << "box " << b.x0 << "," << b.y0 << "," << b.z0 << " - " << b.x1 << ","
                         << b.y1 << "," << b.z1 << " contiguous " << image->IsContiguous3D());
            const std::string name = dir.File("box");
            std::filesystem::remove(name);
            cUnmanagedRawFileWriter writer(name);
            ASSERT_TRUE(writer.Open());
            EXPECT_TRUE(writer.WriteRegion(image, b.x0, b.y0, b.z0, b.x1, b.y1, b.z1));
            // The sizes are the image's, not the box's.
            EXPECT_EQ(writer.GetWidth(), w);
            EXPECT_EQ(writer.GetDepth(), d);
            EXPECT_TRUE(writer.Close());
            std::vector<uint8_t> expected;
            for (uint32_t z = b.z0; z <= b.z1; ++z)
                for (uint32_t y = b.y0; y <= b.y1; ++y)
                    for (uint32_t x = b.x0; x <= b.x1; ++x)
                        AppendLittleEndian(expected, PatternValue<float>(x, y, z));
            EXPECT_EQ(FileBytes(name), expected);
        }
    }

    // The other pixel types share the code; one gathered box each shows their element size.
    auto bytes = MakeImage<uint8_t>(4, 3, 2);
    FillPattern(*bytes);
    cUnmanagedRawFileWriter writer(dir.File("bytes"));
    ASSERT_TRUE(writer.Open());
    EXPECT_TRUE(writer.WriteRegion(bytes, 1, 1, 1, 2, 2, 1));
    EXPECT_TRUE(writer.Close());
    EXPECT_EQ(
        FileBytes(dir.File("bytes")),
        (std::vector<uint8_t>{PatternValue<uint8_t>(1, 1, 1), PatternValue<uint8_t>(2, 1, 1),
                              PatternValue<uint8_t>(1, 2, 1), PatternValue<uint8_t>(2, 2, 1)}));
}

TEST(cUnmanagedRawFileWriter, BoxesOutsideTheImageAreRefusedBeforeAnythingIsWritten) {
    TempDir dir;
    auto image = MakeImage<float>(4, 3, 2);
    FillPattern(*image);
    cUnmanagedRawFileWriter writer(dir.File("refused"));
    ASSERT_TRUE(writer.Open());
    const uint32_t boxes[][6] = {{0, 0, 0, 4, 2, 1}, {0, 0, 0, 3, 3, 1}, {0, 0, 1, 3, 2, 2},
                                 {2, 0, 0, 1, 2, 1}, {0, 2, 0, 3, 1, 1}, {0, 0, 1, 3, 2, 0}};
    for (const auto& b : boxes) {
        SCOPED_TRACE(testing::Message() << b[0] << "," << b[1] << "," << b[2] << " - " << b[3]
                                        << "," << b[4] << "," << b[5]);
        ExpectRefused([&] { writer.WriteRegion(image, b[0], b[1], b[2], b[3], b[4], b[5]); });
    }
    EXPECT_TRUE(writer.Close());
    EXPECT_EQ(std::filesystem::file_size(dir.File("refused")), 0u);
    EXPECT_FALSE(writer.Write(cFloatImagePtr()));
    EXPECT_FALSE(writer.WriteRegion(cFloatImagePtr(), 0, 0, 0, 0, 0, 0));
}

TEST(cUnmanagedRawFileWriter, ShortWritesAreNotedAndTheOperationGoesOn) {
    TempDir dir;
    auto image = MakeImage<float>(3, 2, 2);
    FillPattern(*image);

    // Nothing open: Close has nothing to do, and a writer whose Open failed still answers
    // true to a write, with the system's text noted.
    const std::string missing = dir.File("no such directory/out");
    cUnmanagedRawFileWriter unopened(missing);
    EXPECT_TRUE(unopened.Close());
    EXPECT_FALSE(unopened.Open());
    EXPECT_EQ(unopened.GetHandle(), -1);
    EXPECT_TRUE(unopened.GetLastError().empty());
    EXPECT_TRUE(unopened.Write(image));
    EXPECT_EQ(unopened.GetLastError(), "error: " + missing + " : Bad file descriptor\n");
    EXPECT_TRUE(unopened.Close());
    EXPECT_FALSE(std::filesystem::exists(missing));

    // A device that is always full refuses every byte.
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full on this system";
    cUnmanagedRawFileWriter full("/dev/full");
    ASSERT_TRUE(full.Open());
    EXPECT_TRUE(full.WriteRegion(image, 1, 0, 0, 2, 1, 1));
    EXPECT_EQ(full.GetLastError(), "error: /dev/full : No space left on device\n");
    // Every slice keeps its own place behind the failed ones.
    EXPECT_EQ(full.GetPosition(), 2u * 2 * 2 * sizeof(float));
    EXPECT_TRUE(full.Close());
}
