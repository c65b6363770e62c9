#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "io/RawStackFixtures.h"
#include "io/cUnmanagedRawFileReader.h"
#include "platform/cRawFileHandle.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {
constexpr uint32_t W = 7, H = 5, D = 4;
} // namespace

TEST(cUnmanagedRawFileReader, BoxReadsReachEveryEdge) {
    TempDir dir;
    const std::string name = dir.File("f");
    WriteRaw(name, PatternBytes<float>(0, 0, 0, W - 1, H - 1, D - 1));
    cUnmanagedRawFileReader reader(name, W, H, D);
    ASSERT_TRUE(reader.Open());
    // File box, then image size: inner box; far corner into a larger image; full rows of
    // part of each slice; full rows into a wider image; whole slices; whole slices into a
    // taller image.
    const uint32_t cases[][9] = {
        {2, 1, 1, 4, 3, 2, 3, 3, 2},         {5, 3, 2, 6, 4, 3, 4, 4, 3},
        {0, 1, 0, W - 1, 3, 3, W, 3, 4},     {0, 1, 1, W - 1, 3, 2, W + 2, 4, 2},
        {0, 0, 1, W - 1, H - 1, 3, W, H, 3}, {0, 0, 1, W - 1, H - 1, 3, W, H + 1, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "box from " << c[0] << "," << c[1] << "," << c[2]
                                        << " to " << c[3] << "," << c[4] << "," << c[5]);
        auto image = MakeImage<float>(c[6], c[7], c[8]);
        Fill(*image, 77.0f);
        ASSERT_TRUE(reader.ReadRegionFloat(image, c[0], c[1], c[2], c[3], c[4], c[5]));
        EXPECT_EQ(Mismatches(*image, c[0], c[1], c[2], c[3] - c[0] + 1, c[4] - c[1] + 1,
                             c[5] - c[2] + 1, 77.0f),
                  0);
    }
    // The reader's depth is no limit: one made for a single slice reads any slice.
    cUnmanagedRawFileReader oneSlice(name, W, H, 1);
    ASSERT_TRUE(oneSlice.Open());
    auto slice = MakeImage<float>(W, H, 1);
    ASSERT_TRUE(oneSlice.ReadRegionFloat(slice, 0, 0, D - 1, W - 1, H - 1, D - 1));
    EXPECT_EQ(Mismatches(*slice, 0, 0, D - 1, W, H, 1, 0.0f), 0);

    // Past the end of the file the read comes up short, also for the last of two slices.
    EXPECT_FALSE(reader.ReadRegionFloat(slice, 1, 1, D, 2, 2, D));
    EXPECT_EQ(reader.GetLastError(), "error: " + name + " : Unexpected end of file\n");
    EXPECT_FALSE(reader.ReadRegionFloat(MakeImage<float>(2, 2, 2), 1, 1, D - 1, 2, 2, D));
    // Outside the file's width or height, inverted, or larger than the image.
    const uint32_t refused[][6] = {{0, 0, 0, W, 0, 0},
                                   {0, 0, 0, 0, H, 0},
                                   {3, 0, 0, 2, 0, 0},
                                   {0, 0, 0, 2, 0, 0},
                                   {0, 0, 0, 0, 0, 2}};
    auto small = MakeImage<float>(2, 2, 2);
    for (const auto& b : refused)
        ExpectRefused([&] { reader.ReadRegionFloat(small, b[0], b[1], b[2], b[3], b[4], b[5]); });
    EXPECT_FALSE(reader.ReadRegionFloat(cFloatImagePtr(), 0, 0, 0, 0, 0, 0));
}

TEST(cUnmanagedRawFileReader, ReadRegionMovesAFileBoxToAnImageBoxAndGoesOnPastShortSlices) {
    TempDir dir;
    const std::string name = dir.File("float");
    // Three whole slices, then the first 9 pixels and 2 bytes of a tenth of slice 3.
    std::vector<uint8_t> bytes = PatternBytes<float>(0, 0, 0, W - 1, H - 1, D - 1);
    bytes.resize((3 * W * H + 9) * sizeof(float) + 2);
    WriteRaw(name, bytes);
    cUnmanagedRawFileReader reader(name, W, H, D);
    ASSERT_TRUE(reader.Open());

    // A 3 x 2 x 2 box from file (4, 2, 1) to image (1, 3, 0) of an image of another size;
    // y1 and z1 of the file box are not consulted.
    auto image = MakeImage<float>(5, 6, 3);
    Fill(*image, -7.0f);
    EXPECT_TRUE(reader.ReadRegion(image, 4, 2, 1, 6, 0, 0, 1, 3, 0, 3, 4, 1));
    EXPECT_EQ(Mismatches(*image, 4, 2, 1, 3, 2, 2, -7.0f, 1, 3, 0), 0);
    EXPECT_TRUE(reader.GetLastError().empty());

    // File slices 2, 3 and 4: whole, cut short, missing. Only pixels that arrived whole
    // are taken, and the answer is still true.
    auto slices = MakeImage<float>(W, H, 3);
    Fill(*slices, -7.0f);
    EXPECT_TRUE(reader.ReadRegion(slices, 0, 0, 2, W - 1, H - 1, 4, 0, 0, 0, W - 1, H - 1, 2));
    EXPECT_EQ(reader.GetLastError(), "error: " + name + " : Unexpected end of file\n");
    EXPECT_EQ(Mismatches(*slices, 0, 0, 2, W, H, 1, -7.0f), 9); // all but the 9 that arrived
    for (uint32_t i = 0; i < 9; ++i)
        EXPECT_EQ(*slices->GetPixelPointer(i % W, i / W, 1), PatternValue<float>(i % W, i / W, 3));

    // Source rows or columns beyond the file's slice, or a target box outside the image.
    ExpectRefused([&] { reader.ReadRegion(image, 0, 4, 0, 1, 0, 0, 0, 0, 0, 1, 1, 0); });
    ExpectRefused([&] { reader.ReadRegion(image, W - 2, 0, 0, W, 0, 0, 0, 0, 0, 0, 0, 0); });
    ExpectRefused([&] { reader.ReadRegion(image, 0, 0, 0, 2, 0, 0, 3, 0, 0, 5, 0, 0); });
    ExpectRefused([&] { reader.ReadRegion(image, 0, 0, 0, 2, 0, 0, 0, 0, 2, 2, 0, 3); });
    EXPECT_FALSE(reader.ReadRegion(cFloatImagePtr(), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(cUnmanagedRawFileReader, MissingAndShortFilesAnswerFalse) {
    TempDir dir;
    const std::string missing = dir.File("missing");
    cUnmanagedRawFileReader absent(missing);
    EXPECT_TRUE(absent.Close());
    EXPECT_FALSE(absent.Open());
    EXPECT_EQ(absent.GetHandle(), -1);
    auto image = MakeImage<float>(W, H, D);
    EXPECT_FALSE(absent.Read(image));
    EXPECT_EQ(absent.GetLastError(), "error: " + missing + " : Bad file descriptor\n");
    EXPECT_FALSE(absent.Read(cFloatImagePtr()));

    // One pixel short of the image.
    const std::string name = dir.File("short");
    std::vector<uint8_t> bytes = PatternBytes<float>(0, 0, 0, W - 1, H - 1, D - 1);
    bytes.resize(bytes.size() - sizeof(float));
    WriteRaw(name, bytes);
    cUnmanagedRawFileReader reader(name);
    ASSERT_TRUE(reader.Open());
    EXPECT_FALSE(reader.Read(image));
    EXPECT_EQ(reader.GetLastError(), "error: " + name + " : Unexpected end of file\n");
    // Open again: the position is 0, and a smaller image fits.
    EXPECT_TRUE(reader.Close());
    EXPECT_EQ(reader.GetHandle(), -1);
    ASSERT_TRUE(reader.Open());
    auto smaller = MakeImage<float>(W, H, D - 1);
    EXPECT_TRUE(reader.Read(smaller));
    EXPECT_EQ(Mismatches(*smaller, 0, 0, 0, W, H, D - 1, 0.0f), 0);
}

// Reads of 4 MB and more go in pieces on several threads: what the file holds arrives in
// order and whole, and a file that ends early, inside a piece or pieces before the last,
// gives its exact length and the reason.
TEST(cUnmanagedRawFileReader, LargeAndSpacedReadsArriveInOrderAndStopWhereTheFileEnds) {
    constexpr std::size_t kBytes = (std::size_t{9} << 20) + 12;
    std::vector<uint8_t> pattern(kBytes);
    for (std::size_t i = 0; i < kBytes; ++i)
        pattern[i] = static_cast<uint8_t>((i * 7919) >> 9);
    TempDir dir;
    const std::string name = dir.File("large");
    for (const std::size_t missing : {std::size_t{0}, std::size_t{1}, std::size_t{5} << 20}) {
        SCOPED_TRACE(missing);
        WriteRaw(name, std::vector<uint8_t>(pattern.begin(), pattern.end() - missing));
        Platform::cRawFileHandle file;
        ASSERT_TRUE(file.Open(name, Platform::cRawFileHandle::Access::Read));
        std::vector<uint8_t> read(kBytes, 0);
        EXPECT_EQ(file.Read(read.data(), kBytes), kBytes - missing);
        EXPECT_EQ(file.Position(), kBytes - missing);
        EXPECT_TRUE(std::equal(read.begin(), read.end() - missing, pattern.begin()));
        EXPECT_EQ(file.ErrorText(), missing ? "Unexpected end of file" : "");

        // Pieces lying apart, side by side in memory: on the threads (4.2 MB in all) and one
        // after the other (200 kB); the count ends where the first piece falls short.
        for (const std::size_t piece : {std::size_t{700} << 10, std::size_t{100} << 10}) {
            constexpr uint64_t kFirst = 100, kStride = uint64_t{3} << 19;
            const std::size_t count = piece > (std::size_t{100} << 10) ? 6 : 2;
            const std::size_t end = kBytes - missing;
            std::size_t whole = 0;
            while (whole < count && kFirst + whole * kStride + piece <= end)
                ++whole;
            const std::size_t tail = whole < count && kFirst + whole * kStride < end
                                         ? std::size_t(end - kFirst - whole * kStride)
                                         : 0;
            std::vector<uint8_t> pieces(piece * count, 0);
            file.Seek(kFirst);
            EXPECT_EQ(file.ReadSpaced(pieces.data(), piece, count, kStride), whole * piece + tail);
            for (std::size_t i = 0; i < whole; ++i)
                EXPECT_TRUE(std::equal(pieces.begin() + long(i * piece),
                                       pieces.begin() + long((i + 1) * piece),
                                       pattern.begin() + long(kFirst + i * kStride)));
        }
    }
}

// Offsets past 4 GiB, in sparse files: only the bytes placed take disk space.
TEST(cUnmanagedRawFileReader, BoxesBeyondFourGibibytesAreFoundByTheirOffset) {
    TempDir dir;
    const std::string name = dir.File("sparse");
    const uint64_t fourGiB = uint64_t{1} << 32;
    // The pattern box x0..x1, y0..y1 of slice z of a w x h stack of T, alone in its file.
    const auto place = [&]<class T>(T, uint32_t w, uint32_t h, uint32_t x0, uint32_t y0, uint32_t z,
                                    uint32_t x1, uint32_t y1) {
        std::filesystem::remove(name);
        Platform::cRawFileHandle file;
        ASSERT_TRUE(file.Open(name, Platform::cRawFileHandle::Access::Write)) << file.ErrorText();
        for (uint32_t y = y0; y <= y1; ++y) {
            const std::vector<uint8_t> row = PatternBytes<T>(x0, y, z, x1, y, z);
            file.Seek(((uint64_t{z} * h + y) * w + x0) * sizeof(T));
            ASSERT_EQ(file.Write(row.data(), row.size()), row.size()) << file.ErrorText();
        }
        EXPECT_GT(file.Size(), int64_t(fourGiB));
        ASSERT_TRUE(file.Close());
    };

    // 8-bit 65536 x 65536: slice 1 starts at 4 GiB exactly.
    place(uint8_t(), 65536, 65536, 100, 3, 1, 163, 4);
    cUnmanagedRawFileReader bytes(name, 65536, 65536, 2);
    ASSERT_TRUE(bytes.Open());
    auto image8 = MakeImage<uint8_t>(64, 2, 1);
    ASSERT_TRUE(bytes.ReadRegion8(image8, 100, 3, 1, 163, 4, 1));
    EXPECT_EQ(Mismatches(*image8, 100, 3, 1, 64, 2, 1, uint8_t(0)), 0);

    // Float 256 x 256: slice 16390 lies past 4 GiB through its number alone, which the
    // slice reads and the row reads must carry in 64 bits.
    place(0.0f, 256, 256, 0, 0, 16390, 255, 255);
    cUnmanagedRawFileReader floats(name, 256, 256, 16391);
    ASSERT_TRUE(floats.Open());
    auto viaSlice = MakeImage<float>(3, 2, 1);
    auto viaRows = MakeImage<float>(3, 2, 1);
    EXPECT_TRUE(floats.ReadRegion(viaSlice, 10, 20, 16390, 12, 21, 16390, 0, 0, 0, 2, 1, 0));
    EXPECT_TRUE(floats.GetLastError().empty());
    ASSERT_TRUE(floats.ReadRegionFloat(viaRows, 10, 20, 16390, 12, 21, 16390));
    EXPECT_EQ(Mismatches(*viaSlice, 10, 20, 16390, 3, 2, 1, 0.0f), 0);
    EXPECT_EQ(Mismatches(*viaRows, 10, 20, 16390, 3, 2, 1, 0.0f), 0);
}
