#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/cException.h"
#include "io/RawStackFixtures.h"
#include "io/cUnmanagedRawFileReader.h"
#include "platform/cRawFileHandle.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

constexpr uint32_t W = 7, H = 5, D = 4;

// Reads boxes of a W x H x D pattern file through `readBox` and checks every pixel of the
// image: the box's pixels in place, everything else untouched.
template <class T, class ReadBox> void CheckBoxes(const TempDir& dir, ReadBox readBox) {
    const std::string name = dir.File("boxes" + std::to_string(sizeof(T)));
    WriteFileBytes(name, PatternFileBytes<T>(W, H, D));
    cUnmanagedRawFileReader reader(name, W, H, D);
    ASSERT_TRUE(reader.Open());

    struct Case {
        uint32_t x0, y0, z0, x1, y1, z1; // box in the file
        uint32_t ix, iy, iz;             // image size
    };
    const Case cases[] = {
        {
            2,
            1,
            1,
            4,
            3,
            2,
            3,
            3,
            2,
        }, // inner box, image of its size
        {
            5,
            3,
            2,
            6,
            4,
            3,
            4,
            4,
            3,
        }, // far corner, larger image
        {
            0,
            0,
            0,
            0,
            0,
            0,
            1,
            1,
            1,
        }, // first pixel
        {
            0,
            1,
            0,
            W - 1,
            3,
            3,
            W,
            3,
            4,
        }, // full rows, part of each slice
        {
            0,
            1,
            1,
            W - 1,
            3,
            2,
            W + 2,
            4,
            2,
        }, // full rows into a wider image
        {
            0,
            0,
            1,
            W - 1,
            H - 1,
            3,
            W,
            H,
            3,
        }, // whole slices
        {
            0,
            0,
            1,
            W - 1,
            H - 1,
            3,
            W,
            H + 1,
            3,
        }, // whole slices, taller image
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << sizeof(T) << "-byte box " << c.x0 << "," << c.y0 << ","
                                        << c.z0 << " - " << c.x1 << "," << c.y1 << "," << c.z1);
        auto image = MakeImage<T>(c.ix, c.iy, c.iz);
        const T untouched = T(77);
        Fill(*image, untouched);
        ASSERT_TRUE(readBox(reader, image, c.x0, c.y0, c.z0, c.x1, c.y1, c.z1));
        for (uint32_t z = 0; z < c.iz; ++z)
            for (uint32_t y = 0; y < c.iy; ++y)
                for (uint32_t x = 0; x < c.ix; ++x) {
                    const bool inside = x <= c.x1 - c.x0 && y <= c.y1 - c.y0 && z <= c.z1 - c.z0;
                    const T expected =
                        inside ? PatternValue<T>(c.x0 + x, c.y0 + y, c.z0 + z) : untouched;
                    ASSERT_EQ(*image->GetPixelPointer(x, y, z), expected)
                        << "image pixel " << x << "," << y << "," << z;
                }
    }

    // The reader's depth is not a limit: a reader made for one slice reads any slice of a
    // deeper file, slice by slice.
    cUnmanagedRawFileReader oneSlice(name, W, H, 1);
    ASSERT_TRUE(oneSlice.Open());
    auto slice = MakeImage<T>(W, H, 1);
    ASSERT_TRUE(readBox(oneSlice, slice, 0, 0, D - 1, W - 1, H - 1, D - 1));
    EXPECT_EQ(*slice->GetPixelPointer(W - 1, H - 1, 0), PatternValue<T>(W - 1, H - 1, D - 1));

    // Past the end of the file the read comes up short.
    EXPECT_FALSE(readBox(reader, slice, 1, 1, D, 2, 2, D));
    EXPECT_EQ(reader.GetLastError(), "error: " + name + " : Unexpected end of file\n");
    auto twoSlices = MakeImage<T>(2, 2, 2);
    EXPECT_FALSE(readBox(reader, twoSlices, 1, 1, D - 1, 2, 2, D));

    // Boxes that leave the file's width or height, are inverted, or don't fit the image.
    const uint32_t refused[][6] = {{0, 0, 0, W, 0, 0}, {0, 0, 0, 0, H, 0}, {3, 0, 0, 2, 0, 0},
                                   {0, 3, 0, 0, 2, 0}, {0, 0, 2, 0, 0, 1}, {0, 0, 0, 2, 0, 0},
                                   {0, 0, 0, 0, 2, 0}, {0, 0, 0, 0, 0, 2}};
    auto small = MakeImage<T>(2, 2, 2);
    for (const auto& b : refused) {
        SCOPED_TRACE(testing::Message() << b[0] << "," << b[1] << "," << b[2] << " - " << b[3]
                                        << "," << b[4] << "," << b[5]);
        ExpectRefused([&] { readBox(reader, small, b[0], b[1], b[2], b[3], b[4], b[5]); });
    }
    EXPECT_FALSE(readBox(reader, cCountedPtr<cOvdImage<T>>(), 0, 0, 0, 0, 0, 0));
}

} // namespace

TEST(cUnmanagedRawFileReader, BoxReadsOfEveryPixelTypeReachEveryEdge) {
    TempDir dir;
    CheckBoxes<uint8_t>(dir, [](cUnmanagedRawFileReader& r, const auto& image, auto... box) {
        return r.ReadRegion8(image, box...);
    });
    CheckBoxes<uint16_t>(dir, [](cUnmanagedRawFileReader& r, const auto& image, auto... box) {
        return r.ReadRegion16(image, box...);
    });
    CheckBoxes<float>(dir, [](cUnmanagedRawFileReader& r, const auto& image, auto... box) {
        return r.ReadRegionFloat(image, box...);
    });
}

TEST(cUnmanagedRawFileReader, ReadRegionMovesAFileBoxToAnImageBox) {
    TempDir dir;
    const std::string name = dir.File("float");
    WriteFileBytes(name, PatternFileBytes<float>(W, H, D));
    cUnmanagedRawFileReader reader(name, W, H, D);
    ASSERT_TRUE(reader.Open());

    // A 3 x 2 x 2 box from file position (4, 2, 1) to image position (1, 3, 0) of a
    // differently sized image. y1 and z1 of the file box are not consulted: the target box
    // gives the extent.
    auto image = MakeImage<float>(5, 6, 3);
    Fill(*image, -7.0f);
    EXPECT_TRUE(reader.ReadRegion(image, 4, 2, 1, 6, 0, 0, 1, 3, 0, 3, 4, 1));
    for (uint32_t z = 0; z < 3; ++z)
        for (uint32_t y = 0; y < 6; ++y)
            for (uint32_t x = 0; x < 5; ++x) {
                const bool inside = x >= 1 && x <= 3 && y >= 3 && y <= 4 && z <= 1;
                const float expected =
                    inside ? PatternValue<float>(x - 1 + 4, y - 3 + 2, z + 1) : -7.0f;
                ASSERT_EQ(*image->GetPixelPointer(x, y, z), expected) << x << "," << y << "," << z;
            }

    // Whole slices into an image of the file's slice size.
    auto slices = MakeImage<float>(W, H, 2);
    EXPECT_TRUE(reader.ReadRegion(slices, 0, 0, 2, W - 1, H - 1, 3, 0, 0, 0, W - 1, H - 1, 1));
    EXPECT_EQ(*slices->GetPixelPointer(0, 0, 0), PatternValue<float>(0, 0, 2));
    EXPECT_EQ(*slices->GetPixelPointer(W - 1, H - 1, 1), PatternValue<float>(W - 1, H - 1, 3));

    // Source rows beyond the file's height, columns beyond its width, or a target box
    // outside the image are refused.
    ExpectRefused([&] { reader.ReadRegion(image, 0, 4, 0, 1, 0, 0, 0, 0, 0, 1, 1, 0); });
    ExpectRefused([&] { reader.ReadRegion(image, 5, 0, 0, W, 0, 0, 0, 0, 0, 2, 0, 0); });
    ExpectRefused([&] { reader.ReadRegion(image, 0, 0, 0, 2, 0, 0, 3, 0, 0, 5, 0, 0); });
    ExpectRefused([&] { reader.ReadRegion(image, 0, 0, 0, 2, 0, 0, 0, 0, 2, 2, 0, 3); });
    EXPECT_FALSE(reader.ReadRegion(cFloatImagePtr(), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(cUnmanagedRawFileReader, ReadRegionGoesOnPastAShortSlice) {
    TempDir dir;
    const std::string name = dir.File("truncated");
    // Two whole slices, then the first 9 pixels and 2 bytes of a tenth of slice 2.
    std::vector<uint8_t> bytes = PatternFileBytes<float>(W, H, D);
    bytes.resize((2 * W * H + 9) * sizeof(float) + 2);
    WriteFileBytes(name, bytes);

    cUnmanagedRawFileReader reader(name, W, H, D);
    ASSERT_TRUE(reader.Open());
    auto image = MakeImage<float>(W, H, 3);
    Fill(*image, -7.0f);
    // Slices 1, 2, 3 of the file: whole, cut short, missing.
    EXPECT_TRUE(reader.ReadRegion(image, 0, 0, 1, W - 1, H - 1, 3, 0, 0, 0, W - 1, H - 1, 2));
    EXPECT_EQ(reader.GetLastError(), "error: " + name + " : Unexpected end of file\n");
    for (uint32_t z = 0; z < 3; ++z)
        for (uint32_t y = 0; y < H; ++y)
            for (uint32_t x = 0; x < W; ++x) {
                const bool arrived = z == 0 || (z == 1 && y * W + x < 9);
                const float expected = arrived ? PatternValue<float>(x, y, z + 1) : -7.0f;
                ASSERT_EQ(*image->GetPixelPointer(x, y, z), expected) << x << "," << y << "," << z;
            }
}

TEST(cUnmanagedRawFileReader, ShortAndMissingFilesAnswerFalse) {
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

    // A file one pixel shorter than the image.
    const std::string name = dir.File("short");
    std::vector<uint8_t> bytes = PatternFileBytes<float>(W, H, D);
    bytes.resize(bytes.size() - sizeof(float));
    WriteFileBytes(name, bytes);
    cUnmanagedRawFileReader reader(name);
    ASSERT_TRUE(reader.Open());
    EXPECT_GE(reader.GetHandle(), 0);
    EXPECT_FALSE(reader.Read(image));
    EXPECT_EQ(reader.GetWidth(), W);
    EXPECT_EQ(reader.GetDepth(), D);
    EXPECT_EQ(reader.GetLastError(), "error: " + name + " : Unexpected end of file\n");
    // Reopening starts again at 0: a smaller image reads fine.
    EXPECT_TRUE(reader.Close());
    EXPECT_EQ(reader.GetHandle(), -1);
    EXPECT_TRUE(reader.Close());
    ASSERT_TRUE(reader.Open());
    auto smaller = MakeImage<float>(W, H, D - 1);
    EXPECT_TRUE(reader.Read(smaller));
    EXPECT_EQ(*smaller->GetPixelPointer(W - 1, H - 1, D - 2),
              PatternValue<float>(W - 1, H - 1, D - 2));
}

// Positions past 4 GiB, in a sparse file: only the few bytes written take disk space.
TEST(cUnmanagedRawFileReader, BoxesBeyondFourGibibytesAreFoundByTheirOffset) {
    TempDir dir;
    const std::string name = dir.File("sparse");
    const uint64_t fourGiB = uint64_t{1} << 32;

    // Places `bytes` at `offset` and makes the file `length` long.
    const auto place = [&](uint64_t offset, const std::vector<uint8_t>& bytes, uint64_t length) {
        Platform::cRawFileHandle file;
        ASSERT_TRUE(file.Open(name, Platform::cRawFileHandle::Access::Write)) << file.ErrorText();
        ASSERT_TRUE(file.SetSize(0));
        ASSERT_TRUE(file.SetSize(length)) << file.ErrorText();
        file.Seek(offset);
        ASSERT_EQ(file.Write(bytes.data(), bytes.size()), bytes.size()) << file.ErrorText();
        EXPECT_EQ(file.Position(), offset + bytes.size());
        EXPECT_EQ(file.Size(), int64_t(length));
        ASSERT_TRUE(file.Close());
    };

    // 8-bit, 65536 x 65536: slice 1 begins at exactly 4 GiB. Two rows of a box at x 100.
    {
        const uint32_t w = 65536, h = 65536;
        std::vector<uint8_t> rows;
        for (uint32_t y = 3; y <= 4; ++y)
            for (uint32_t x = 0; x < w; ++x)
                rows.push_back(PatternValue<uint8_t>(x, y, 1));
        place(fourGiB + uint64_t{3} * w, rows, 2 * fourGiB);
        ASSERT_GT(std::filesystem::file_size(name), fourGiB);
        cUnmanagedRawFileReader reader(name, w, h, 2);
        ASSERT_TRUE(reader.Open());
        auto image = MakeImage<uint8_t>(64, 2, 1);
        ASSERT_TRUE(reader.ReadRegion8(image, 100, 3, 1, 163, 4, 1));
        for (uint32_t y = 0; y < 2; ++y)
            for (uint32_t x = 0; x < 64; ++x)
                ASSERT_EQ(*image->GetPixelPointer(x, y, 0),
                          PatternValue<uint8_t>(100 + x, 3 + y, 1));
    }

    // 16-bit, 65536 x 32768: a slice is 4 GiB, so slice 2 lies at 8 GiB.
    {
        const uint32_t w = 65536, h = 32768;
        std::vector<uint8_t> row;
        for (uint32_t x = 0; x < w; ++x)
            AppendLittleEndian(row, PatternValue<uint16_t>(x, h - 1, 2));
        const uint64_t offset = (uint64_t{2} * h + (h - 1)) * w * 2;
        place(offset, row, offset + row.size());
        cUnmanagedRawFileReader reader(name, w, h, 3);
        ASSERT_TRUE(reader.Open());
        auto image = MakeImage<uint16_t>(5, 1, 1);
        ASSERT_TRUE(reader.ReadRegion16(image, w - 5, h - 1, 2, w - 1, h - 1, 2));
        for (uint32_t x = 0; x < 5; ++x)
            ASSERT_EQ(*image->GetPixelPointer(x, 0, 0),
                      PatternValue<uint16_t>(w - 5 + x, h - 1, 2));
    }

    // Float, 256 x 256 slices of 256 KiB: slice 16390 lies past 4 GiB only because of
    // its number, which the slice and row reads must carry in 64 bits.
    {
        const uint32_t w = 256, h = 256, z = 16390;
        std::vector<uint8_t> slice;
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
                AppendLittleEndian(slice, PatternValue<float>(x, y, z));
        const uint64_t offset = uint64_t{z} * w * h * 4;
        ASSERT_GT(offset, fourGiB);
        place(offset, slice, offset + slice.size());
        cUnmanagedRawFileReader reader(name, w, h, z + 1);
        ASSERT_TRUE(reader.Open());
        auto viaSlices = MakeImage<float>(3, 2, 1);
        EXPECT_TRUE(reader.ReadRegion(viaSlices, 10, 20, z, 12, 21, z, 0, 0, 0, 2, 1, 0));
        EXPECT_TRUE(reader.GetLastError().empty());
        auto viaRows = MakeImage<float>(3, 2, 1);
        ASSERT_TRUE(reader.ReadRegionFloat(viaRows, 10, 20, z, 12, 21, z));
        for (uint32_t y = 0; y < 2; ++y)
            for (uint32_t x = 0; x < 3; ++x) {
                ASSERT_EQ(*viaSlices->GetPixelPointer(x, y, 0),
                          PatternValue<float>(10 + x, 20 + y, z));
                ASSERT_EQ(*viaRows->GetPixelPointer(x, y, 0),
                          PatternValue<float>(10 + x, 20 + y, z));
            }
    }
}
