#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>

#include <filesystem>
#include <utility>
#include <vector>

#include <sys/resource.h>

#include "io/RawStackFixtures.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// An image over separate vectors, one per slice, as a stack held slice by slice is.
struct SliceTable {
    SliceTable(uint32_t w, uint32_t h, uint32_t d) : slices(d, std::vector<float>(w * h)) {
        for (auto& s : slices)
            table.push_back(s.data());
        image = new cOvdImage<float>(table.data(), w, h, d, Contiguous2D, "slices");
    }
    std::vector<std::vector<float>> slices;
    std::vector<float*> table;
    cFloatImagePtr image;
};

// `kept`: written as a file the host keeps, replaced and synced at the end.
template <class T>
void CheckRoundTrip(const std::string& name, const cCountedPtr<cOvdImage<T>>& source,
                    const cCountedPtr<cOvdImage<T>>& target, bool kept = false) {
    const uint32_t w = source->GetSizeX(), h = source->GetSizeY(), d = source->GetSizeZ();
    SCOPED_TRACE(testing::Message() << sizeof(T) << "-byte pixels, " << w << "x" << h << "x" << d);
    Fill(*source);
    cUnmanagedRawFileWriter writer(name);
    ASSERT_TRUE(kept ? writer.OpenToReplace() : writer.Open());
    EXPECT_TRUE(writer.Write(source));
    EXPECT_EQ((std::vector{writer.GetWidth(), writer.GetHeight(), writer.GetDepth()}),
              (std::vector{w, h, d}));
    EXPECT_TRUE(kept ? writer.CloseDurably() : writer.Close());
    EXPECT_EQ(writer.GetHandle(), -1);
    EXPECT_EQ(FileBytes(name), PatternBytes<T>(0, 0, 0, w - 1, h - 1, d - 1));

    cUnmanagedRawFileReader reader(name);
    ASSERT_TRUE(reader.Open());
    ASSERT_TRUE(reader.Read(target));
    EXPECT_EQ(Mismatches(*target, 0, 0, 0, w, h, d, T(0)), 0);
    EXPECT_FALSE(reader.Read(target)); // the file is used up
}

} // namespace

TEST(cUnmanagedRawFileWriter, EveryPixelTypeAndLayoutGoesOutInFileOrderAndComesBack) {
    TempDir dir;
    CheckRoundTrip(dir.File("u8"), MakeImage<uint8_t>(7, 5, 3), MakeImage<uint8_t>(7, 5, 3));
    CheckRoundTrip(dir.File("u16"), MakeImage<uint16_t>(7, 5, 3), MakeImage<uint16_t>(7, 5, 3));
    CheckRoundTrip(dir.File("f"), MakeImage<float>(7, 5, 3), MakeImage<float>(7, 5, 3));
    SliceTable source(6, 4, 3), target(6, 4, 3);
    CheckRoundTrip(dir.File("slices"), source.image, target.image);
    CheckRoundTrip(dir.File("one"), MakeImage<float>(1, 1, 1), MakeImage<float>(1, 1, 1));
    // A kept file goes to the disk in pieces of 4 MB: two here, the second short.
    CheckRoundTrip(dir.File("kept"), MakeImage<float>(1031, 1029, 1),
                   MakeImage<float>(1031, 1029, 1), true);
}

// Writes follow each other in the file, and opening again starts at 0. What lies beyond the
// written bytes of an older, longer file is not the writer's to keep.
TEST(cUnmanagedRawFileWriter, WritesFollowEachOtherFromTheStartOfTheFile) {
    TempDir dir;
    const std::string name = dir.File("old");
    WriteRaw(name, std::vector<uint8_t>(100, 0xAB));
    auto floats = MakeImage<float>(2, 2, 1);
    auto words = MakeImage<uint16_t>(3, 1, 1);
    Fill(*floats);
    Fill(*words);
    const std::vector<uint8_t> words0 = PatternBytes<uint16_t>(0, 0, 0, 2, 0, 0);
    std::vector<uint8_t> both = PatternBytes<float>(0, 0, 0, 1, 1, 0);
    both.insert(both.end(), words0.begin(), words0.end());
    cUnmanagedRawFileWriter writer(name);
    for (const std::vector<uint8_t>& written : {both, words0}) {
        ASSERT_TRUE(writer.Open());
        if (written == both) {
            EXPECT_TRUE(writer.Write(floats));
        }
        EXPECT_TRUE(writer.Write(words));
        EXPECT_TRUE(writer.Close());
        const std::vector<uint8_t> bytes = FileBytes(name);
        ASSERT_GE(bytes.size(), written.size());
        EXPECT_TRUE(std::equal(written.begin(), written.end(), bytes.begin()));
    }
}

// A file opened to be replaced is written over in place and ends with the new stack when it
// closes durably, whether the old file was longer or shorter; closed any other way, or left
// to the destructor, it is empty rather than a mix of old and new bytes.
TEST(cUnmanagedRawFileWriter, AReplacedFileHoldsTheNewStackAloneOrNothing) {
    TempDir dir;
    const std::string name = dir.File("kept");
    auto floats = MakeImage<float>(2, 2, 1);
    Fill(*floats);
    const std::vector<uint8_t> written = PatternBytes<float>(0, 0, 0, 1, 1, 0);
    enum class End { Durably, Plainly, Destroyed };
    const struct {
        std::size_t oldBytes;
        End end;
        bool keepsStack;
    } cases[] = {{100, End::Durably, true},
                 {4, End::Durably, true},
                 {100, End::Plainly, false},
                 {100, End::Destroyed, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.oldBytes << " old bytes, end " << int(c.end));
        WriteRaw(name, std::vector<uint8_t>(c.oldBytes, 0xAB));
        {
            cUnmanagedRawFileWriter writer(name);
            ASSERT_TRUE(writer.OpenToReplace());
            EXPECT_TRUE(writer.Write(floats));
            if (c.end == End::Durably) {
                EXPECT_TRUE(writer.CloseDurably());
            } else if (c.end == End::Plainly) {
                EXPECT_TRUE(writer.Close());
            }
        }
        EXPECT_EQ(FileBytes(name), c.keepsStack ? written : std::vector<uint8_t>{});
    }
}

TEST(cUnmanagedRawFileWriter, BoxesArePackedDenselyBandsGoToTheirRowsAndBoxesOutsideAreRefused) {
    TempDir dir;
    const std::string name = dir.File("box");
    SliceTable sliced(6, 5, 4);
    Fill(*sliced.image);
    auto contiguous = MakeImage<float>(6, 5, 4);
    Fill(*contiguous);
    auto tall = MakeImage<float>(3, 2500, 2);
    Fill(*tall);
    // Gathered rows, full-width rows of part of each slice, whole slices, one pixel, in either
    // layout; and more rows than one gathering call takes.
    using Box = std::array<uint32_t, 6>;
    std::vector<std::pair<cFloatImagePtr, Box>> writes{{tall, {1, 1, 0, 2, 2499, 1}}};
    for (const cFloatImagePtr& image : {contiguous, sliced.image})
        for (const Box& b :
             {Box{1, 2, 1, 3, 4, 2}, {0, 1, 2, 5, 3, 3}, {0, 0, 1, 5, 4, 3}, {5, 4, 3, 5, 4, 3}})
            writes.emplace_back(image, b);
    for (const auto& [image, b] : writes) {
        SCOPED_TRACE(testing::Message() << "box from " << b[0] << "," << b[1] << "," << b[2]
                                        << " contiguous " << image->IsContiguous3D());
        std::filesystem::remove(name);
        cUnmanagedRawFileWriter writer(name);
        ASSERT_TRUE(writer.Open());
        EXPECT_TRUE(writer.WriteRegion(image, b[0], b[1], b[2], b[3], b[4], b[5]));
        EXPECT_EQ(writer.GetWidth(), image->GetSizeX()); // the image's sizes, not the box's
        EXPECT_TRUE(writer.Close());
        EXPECT_EQ(FileBytes(name), PatternBytes<float>(b[0], b[1], b[2], b[3], b[4], b[5]));
    }
    // Bands of rows of every slice, each to its own rows of a 5-row stack, the lower first.
    {
        const std::string bandName = dir.File("bands");
        cUnmanagedRawFileWriter writer(bandName);
        ASSERT_TRUE(writer.OpenToReplace());
        auto band = MakeImage<float>(6, 3, 4);
        for (const uint32_t first : {2u, 0u}) {
            ForEachPixel(*band, [&](float& p, uint32_t x, uint32_t y, uint32_t z) {
                p = PatternValue<float>(x, y + first, z);
            });
            EXPECT_TRUE(writer.WriteBand(band, first == 0 ? 2 : 3, first, 5));
        }
        ExpectRefused([&] { writer.WriteBand(band, 4, 0, 5); }); // more rows than the image
        ExpectRefused([&] { writer.WriteBand(band, 3, 3, 5); }); // past the stack
        EXPECT_TRUE(writer.CloseDurably());
        EXPECT_EQ(FileBytes(bandName), PatternBytes<float>(0, 0, 0, 5, 4, 3));
    }
    auto bytes = MakeImage<uint8_t>(4, 3, 2);
    Fill(*bytes);
    cUnmanagedRawFileWriter writer(name);
    ASSERT_TRUE(writer.Open());
    EXPECT_TRUE(writer.WriteRegion(bytes, 1, 1, 1, 2, 2, 1));

    // Past an edge, or inverted: refused before a byte is written.
    const uint32_t refused[][6] = {{0, 0, 0, 4, 2, 1}, {0, 0, 0, 3, 3, 1}, {0, 0, 1, 3, 2, 2},
                                   {2, 0, 0, 1, 2, 1}, {0, 2, 0, 3, 1, 1}, {0, 0, 1, 3, 2, 0}};
    for (const auto& b : refused)
        ExpectRefused([&] { writer.WriteRegion(bytes, b[0], b[1], b[2], b[3], b[4], b[5]); });
    EXPECT_TRUE(writer.Close());
    EXPECT_EQ(FileBytes(name), PatternBytes<uint8_t>(1, 1, 1, 2, 2, 1));
    EXPECT_FALSE(writer.Write(cFloatImagePtr()));
    EXPECT_FALSE(writer.WriteRegion(cFloatImagePtr(), 0, 0, 0, 0, 0, 0));
}

TEST(cUnmanagedRawFileWriter, ShortWritesAreNotedAndTheOperationGoesOn) {
    TempDir dir;
    auto image = MakeImage<float>(3, 2, 2);
    Fill(*image);

    // A writer whose Open failed still answers true to a write, with the system's text.
    const std::string missing = dir.File("no such directory/out");
    cUnmanagedRawFileWriter unopened(missing);
    EXPECT_TRUE(unopened.Close());
    EXPECT_FALSE(unopened.Open());
    EXPECT_EQ(unopened.GetHandle(), -1);
    EXPECT_TRUE(unopened.Write(image));
    EXPECT_EQ(unopened.GetLastError(), "error: " + missing + " : Bad file descriptor\n");

    // A file-size limit one byte below the stack, or below a box whose rows are gathered:
    // the write falls short by that one byte, inside its last row.
    const std::string limited = dir.File("limited");
    for (const bool box : {false, true}) {
        SCOPED_TRACE(box ? "gathered box" : "stack");
        std::filesystem::remove(limited);
        const uint64_t bytes = (box ? 2 * 2 * 2 : 3 * 2 * 2) * sizeof(float);
        rlimit saved{};
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
        ASSERT_GE(saved.rlim_cur, bytes);
        const auto handler = std::signal(SIGXFSZ, SIG_IGN);
        cUnmanagedRawFileWriter writer(limited);
        ASSERT_TRUE(writer.Open());
        rlimit limit = saved;
        limit.rlim_cur = bytes - 1;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        const bool answer = box ? writer.WriteRegion(image, 1, 0, 0, 2, 1, 1) : writer.Write(image);
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, handler);
        EXPECT_TRUE(answer);
        EXPECT_EQ(writer.GetLastError(), "error: " + limited + " : File too large\n");
        EXPECT_EQ(writer.GetPosition(), bytes);
        EXPECT_TRUE(writer.Close());
        EXPECT_EQ(std::filesystem::file_size(limited), bytes - 1);
    }

    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full on this system";
    cUnmanagedRawFileWriter full("/dev/full"); // refuses every byte
    ASSERT_TRUE(full.Open());
    EXPECT_TRUE(full.WriteRegion(image, 1, 0, 0, 2, 1, 1));
    EXPECT_EQ(full.GetLastError(), "error: /dev/full : No space left on device\n");
    // Each slice of the box kept its own place behind the failed one.
    EXPECT_EQ(full.GetPosition(), 2u * 2 * 2 * sizeof(float));
    EXPECT_TRUE(full.Close());
}
