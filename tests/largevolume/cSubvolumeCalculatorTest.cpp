#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "largevolume/SubvolumeMemoryBudget.h"
#include "largevolume/cDynamicSubvolumeCalculator.h"
#include "largevolume/cStaticSubvolumeCalculator.h"

using namespace Ovidane;

namespace {

enum class Cut { Static, Dynamic };

struct Settings {
    Cut cut;
    cImageDimensions stack;
    uint32_t guardXY, guardZ, overlap;
    bool xyMontage, zMontage, confocal, is2D;
    int64_t memory;
};

struct Expected {
    int result;
    cImageDimensions count{}, size{}, low{}, high{}, padded{};
};

struct Row {
    const char* what;
    Settings in;
    Expected out;
};

std::unique_ptr<cSubvolumeCalculator> Make(const Settings& s) {
    std::unique_ptr<cSubvolumeCalculator> c(
        s.cut == Cut::Static ? static_cast<cSubvolumeCalculator*>(new cStaticSubvolumeCalculator)
                             : new cDynamicSubvolumeCalculator);
    c->SetImageSize(s.stack);
    c->SetXYGuardBand(s.guardXY);
    c->SetZGuardBand(s.guardZ);
    c->SetOverlap(s.overlap);
    c->SetXYMontage(s.xyMontage);
    c->SetZMontage(s.zMontage);
    c->SetConfocal(s.confocal);
    c->SetIs2D(s.is2D);
    c->SetMemorySize(s.memory);
    return c;
}

constexpr Cut S = Cut::Static;
constexpr Cut D = Cut::Dynamic;
constexpr bool on = true, off = false;
constexpr int64_t MB = 1048576;

// Every row worked out by hand from the cutting rules. Dynamic budgets are chosen so that
// the target edge lands on a known value: 76800000 bytes over a padded depth of 120 and 4
// bytes a pixel leave a square of side 400, 64 MB a side of 373 (edge 360, area 139129) or
// a cube of side 256.
const std::vector<Row> kRows = {
    {"a stack that fits the budget stays whole",
     {D, {500, 500, 80}, 10, 5, 20, on, off, off, off, 2048 * MB},
     {0, {1, 1, 1}, {500, 500, 80}, {20, 20, 5}, {20, 20, 5}, {540, 540, 90}}},
    {"fixed limits cut a square stack 4x4",
     {S, {1024, 1024, 100}, 10, 5, 20, on, off, off, off, 0},
     {0, {4, 4, 1}, {271, 271, 100}, {24, 24, 10}, {25, 25, 10}, {320, 320, 120}}},
    {"a power of two in z is taken when the budget exceeds its cost",
     {S, {1024, 1024, 100}, 10, 5, 20, on, off, off, off, 4 * 128 * 320 * 320 + 1},
     {0, {4, 4, 1}, {271, 271, 100}, {24, 24, 14}, {25, 25, 14}, {320, 320, 128}}},
    {"a budget just at the power of two's cost keeps the mixed size",
     {S, {1024, 1024, 100}, 10, 5, 20, on, off, off, off, 4 * 128 * 320 * 320},
     {0, {4, 4, 1}, {271, 271, 100}, {24, 24, 10}, {25, 25, 10}, {320, 320, 120}}},
    {"an overlap below twice the guard band counts as twice the band",
     {S, {1024, 1024, 100}, 10, 5, 5, on, off, off, off, 0},
     {0, {4, 4, 1}, {271, 271, 100}, {24, 24, 10}, {25, 25, 10}, {320, 320, 120}}},
    {"confocal keeps the overlap and single guard bands",
     {S, {1024, 1024, 100}, 10, 5, 5, on, off, on, off, 0},
     {0, {4, 4, 1}, {260, 260, 100}, {14, 14, 10}, {14, 14, 10}, {288, 288, 120}}},
    {"fixed limits cut z too with z montage",
     {S, {1024, 1024, 200}, 10, 5, 20, on, on, off, off, 0},
     {0, {4, 4, 3}, {271, 271, 80}, {24, 24, 10}, {25, 25, 10}, {320, 320, 100}}},
    {"a stack below 91 slices is not cut in z",
     {S, {2048, 2048, 60}, 16, 8, 32, on, on, off, off, 0},
     {0, {8, 8, 1}, {284, 284, 60}, {38, 38, 10}, {38, 38, 10}, {360, 360, 80}}},
    {"wide guard bands make windows that reach the stack's start",
     {S, {1024, 1024, 100}, 40, 5, 80, on, off, off, off, 0},
     {0, {6, 6, 1}, {238, 238, 100}, {81, 81, 10}, {81, 81, 10}, {400, 400, 120}}},
    {"x and y below 91 are never cut",
     {S, {80, 60, 50}, 10, 5, 20, on, off, off, off, 0},
     {0, {1, 1, 1}, {80, 60, 50}, {10, 10, 5}, {10, 10, 5}, {100, 80, 60}}},
    {"the budget cuts a square stack 3x3",
     {D, {1024, 1024, 100}, 10, 5, 20, on, off, off, off, 76800000},
     {0, {3, 3, 1}, {355, 355, 100}, {22, 22, 10}, {23, 23, 10}, {400, 400, 120}}},
    {"with equal sides y is cut first, to the edge",
     {D, {1024, 1024, 100}, 10, 5, 20, on, off, off, off, 64 * MB},
     {0, {3, 4, 1}, {355, 271, 100}, {22, 24, 14}, {23, 25, 14}, {400, 320, 128}}},
    {"a narrow strip is cut by the area, not the edge",
     {D, {2048, 200, 100}, 10, 5, 20, on, off, off, off, 76800000},
     {0, {4, 1, 1}, {527, 200, 100}, {24, 20, 14}, {25, 20, 14}, {576, 240, 128}}},
    {"an axis below 91 stays whole even when the budget would cut it",
     {D, {80, 2000, 100}, 10, 5, 20, on, off, off, off, 1200000},
     {0, {1, 39, 1}, {80, 71, 100}, {10, 24, 10}, {10, 25, 10}, {100, 120, 120}}},
    {"x, y and z montage cut to a cube",
     {D, {1024, 1024, 400}, 10, 5, 20, on, on, off, off, 64 * MB},
     {0, {5, 5, 2}, {221, 221, 210}, {24, 24, 15}, {25, 25, 15}, {270, 270, 240}}},
    {"z montage alone takes whole slices",
     {D, {200, 200, 300}, 10, 5, 20, off, on, off, off, 4 * 200 * 200 * 100},
     {0, {1, 1, 4}, {200, 200, 90}, {20, 20, 15}, {20, 20, 15}, {240, 240, 120}}},
    {"the planes of a 2D stack are subvolumes of their own",
     {D, {1024, 1024, 3}, 10, 0, 20, on, off, off, on, 1 * MB},
     {0, {2, 3, 3}, {522, 355, 1}, {27, 22, 0}, {27, 23, 0}, {576, 400, 1}}},
    {"a guard band as wide as x is refused",
     {S, {50, 200, 10}, 50, 5, 20, on, off, off, off, 0},
     {1}},
    {"guard bands too wide for the size limit are refused",
     {S, {1024, 1024, 100}, 100, 5, 0, on, off, off, off, 0},
     {1}},
    {"a budget below one slice is refused",
     {D, {2000, 2000, 200}, 10, 5, 20, off, on, off, off, 1000000},
     {1}},
};

uint32_t On(const cImageDimensions& d, int axis) {
    return axis == 0 ? d.x : axis == 1 ? d.y : d.z;
}

// One axis of a window: first pixel, one past the last, where the interior begins.
struct Span {
    uint32_t start, end, offset;
    bool operator==(const Span&) const = default;
};

Span SpanOn(const cImageBox& box, const cImagePosition& offset, int axis) {
    const uint32_t starts[] = {box.x0, box.y0, box.z0}, lasts[] = {box.x1, box.y1, box.z1};
    const uint32_t offsets[] = {offset.x, offset.y, offset.z};
    return {starts[axis], lasts[axis] + 1, offsets[axis]};
}

std::string Show(const cImageDimensions& d) {
    return std::to_string(d.x) + "x" + std::to_string(d.y) + "x" + std::to_string(d.z);
}

#define EXPECT_DIMS(actual, expected) EXPECT_EQ(Show(actual), Show(expected))

} // namespace

// For every cut of the table, beyond its sizes: the interiors tile each axis with neighbours
// sharing exactly the stored overlap, every window lies inside the stack, holds its interior
// (cut at the stack's end) and at most the bands' width before it, and one axis's window
// doesn't depend on the other indices.
TEST(SubvolumeCalculator, CutsMatchHandWorkedTableAndTileTheStack) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.what);
        auto c = Make(row.in);
        ASSERT_EQ(c->CalculateSubvolumes(), row.out.result);
        if (row.out.result != 0) {
            // A refused cut stores nothing.
            EXPECT_DIMS(c->GetSubvolumeCount(), (cImageDimensions{1, 1, 1}));
            EXPECT_DIMS(c->GetSubvolumeSize(), (cImageDimensions{1, 1, 1}));
            continue;
        }
        ASSERT_EQ(c->CalculateGuardBands(), 0);
        EXPECT_DIMS(c->GetSubvolumeCount(), row.out.count);
        EXPECT_DIMS(c->GetSubvolumeSize(), row.out.size);
        EXPECT_DIMS(c->GetLowGuardBand(), row.out.low);
        EXPECT_DIMS(c->GetHighGuardBand(), row.out.high);
        EXPECT_DIMS(c->GetPaddedSize(), row.out.padded);
        // The cut changes neither what was asked for nor the log's overlap.
        EXPECT_EQ(c->GetOverlap(), row.in.overlap);
        EXPECT_EQ(c->GetMemorySize(), row.in.memory);

        const cImageDimensions n = c->GetSubvolumeCount();
        std::vector<Span> spans[3];
        for (uint32_t iz = 0; iz < n.z; ++iz)
            for (uint32_t iy = 0; iy < n.y; ++iy)
                for (uint32_t ix = 0; ix < n.x; ++ix) {
                    cImageBox box;
                    cImagePosition offset;
                    cImageDimensions size, padded;
                    ASSERT_EQ(c->GetSubvolumeRegion(ix, iy, iz, box, offset, size, padded), 0);
                    EXPECT_DIMS(padded, c->GetPaddedSize());
                    const uint32_t index[3] = {ix, iy, iz};
                    for (int a = 0; a < 3; ++a) {
                        const Span span = SpanOn(box, offset, a);
                        EXPECT_EQ(span.end - span.start, On(size, a));
                        if (spans[a].size() == index[a])
                            spans[a].push_back(span);
                        EXPECT_EQ(span, spans[a][index[a]]);
                    }
                }
        for (int a = 0; a < 3; ++a) {
            SCOPED_TRACE("axis " + std::to_string(a));
            const uint32_t interior = On(c->GetSubvolumeSize(), a);
            const uint32_t length = On(c->GetImageSize(), a);
            const uint32_t bands = On(c->GetLowGuardBand(), a) + On(c->GetHighGuardBand(), a);
            // The planes of a 2D stack share nothing.
            const uint32_t overlap = a == 2 && row.in.is2D ? 0 : row.in.overlap;
            EXPECT_EQ(spans[a].front().start, 0u);
            EXPECT_EQ(spans[a].front().offset, 0u);
            EXPECT_EQ(spans[a].back().end, length);
            for (size_t i = 0; i < spans[a].size(); ++i) {
                const Span& w = spans[a][i];
                const uint64_t at = uint64_t{w.start} + w.offset;
                if (i > 0) {
                    const Span& v = spans[a][i - 1];
                    EXPECT_EQ(at - v.start - v.offset, interior - overlap) << i;
                }
                EXPECT_LE(w.end, length);
                EXPECT_GE(uint64_t{w.end}, std::min<uint64_t>(at + interior, length)) << i;
                EXPECT_TRUE(w.offset == bands || (w.start == 0 && w.offset < bands)) << i;
            }
            const Span& last = spans[a].back();
            EXPECT_GE(uint64_t{last.start} + last.offset + interior, length);
        }
    }
}

// Interiors set by hand that stop short of the stack's end (4 of 250 striding by 230, the
// last from 690 to 940): the last window still runs to the end.
TEST(SubvolumeCalculator, TheLastWindowRunsToTheStacksEnd) {
    auto c = Make(kRows[1].in);
    ASSERT_EQ(c->CalculateSubvolumes(), 0);
    ASSERT_EQ(c->CalculateGuardBands(), 0);
    c->SetSubvolumeSize({250, 250, 100});
    cImageBox box;
    cImagePosition offset;
    cImageDimensions size, padded;
    ASSERT_EQ(c->GetSubvolumeRegion(3, 0, 0, box, offset, size, padded), 0);
    EXPECT_EQ(box, (cImageBox{641, 0, 0, 1023, 298, 99}));
}

// Upward: the smallest even 2^a 3^b 5^c not below the value. Downward: the largest one not
// above the value plus one. Checked against a plain search over all such numbers; the
// sign is kept and 0, 1 and -1 stand.
TEST(SubvolumeCalculator, FastSizesAreNearestSmoothEvenSizes) {
    cDynamicSubvolumeCalculator c;
    for (int v : {0, 1, -1}) {
        EXPECT_EQ(c.GetFastSize(v, 1), v);
        EXPECT_EQ(c.GetFastSize(v, -1), v);
    }
    constexpr int kLimit = 5000;
    std::vector<bool> fast(kLimit + 2, false);
    for (long p2 = 2; p2 < long(fast.size()); p2 *= 2)
        for (long p3 = p2; p3 < long(fast.size()); p3 *= 3)
            for (long p5 = p3; p5 < long(fast.size()); p5 *= 5)
                fast[p5] = true;
    for (int v = 2; v < kLimit; ++v) {
        int up = v, down = v + 1;
        while (!fast[up])
            ++up;
        while (!fast[down])
            --down;
        ASSERT_EQ(c.GetFastSize(v, 1), up) << v;
        ASSERT_EQ(c.GetFastSize(v, -1), down) << v;
        ASSERT_EQ(c.GetFastSize(-v, 1), -up) << v;
        ASSERT_EQ(c.GetFastSize(-v, -1), -down) << v;
    }
}

TEST(SubvolumeMemoryBudget, MemoryIsSharedAmongTheImagesOfAModeWithinTheCaps) {
    // 16 GB left after the system's 200 MB, shared by 8 images: 2 GB each, unless the
    // memory service gives less per buffer.
    EXPECT_EQ(SubvolumeMemoryBudget(8, 16584, 4000), 2147483648LL);
    EXPECT_EQ(SubvolumeMemoryBudget(8, 16584, 2048), 2147483648LL);
    EXPECT_EQ(SubvolumeMemoryBudget(8, 16584, 2047), 2047 * MB);
    // 2^34 / 19 is 904203641.26; in single precision it is 904203648, 862 MB and a bit.
    EXPECT_EQ(SubvolumeMemoryBudget(19, 16584, 862), 904203648LL);
    EXPECT_EQ(SubvolumeMemoryBudget(19, 16584, 861), 861 * MB);

    // A run's budget is shared like physical memory and never raises it.
    const int64_t machine = GetSubvolumeMemoryBudget(1);
    SetRunMemoryBudget(1600000);
    // Shared by a restoration's peak of 16 images, or by the mode's count where that is more.
    EXPECT_EQ(GetSubvolumeMemoryBudget(1), 100000);
    EXPECT_EQ(GetSubvolumeMemoryBudget(3), 1600000 / 19);
    SetRunMemoryBudget(5); // below one byte per image still leaves a budget to cut by
    EXPECT_EQ(GetSubvolumeMemoryBudget(1), 1);
    SetRunMemoryBudget(machine * 1000);
    EXPECT_EQ(GetSubvolumeMemoryBudget(1), machine);
    SetRunMemoryBudget(-3);
    EXPECT_EQ(GetRunMemoryBudget(), 0);
    EXPECT_EQ(GetSubvolumeMemoryBudget(1), machine);

    // What is spare beyond a restoration's 16 images: the budget's rest, never below 0, and
    // the machine's rest without a budget.
    SetRunMemoryBudget(1600000);
    EXPECT_EQ(GetSpareRunMemory(60000), 640000);
    EXPECT_EQ(GetSpareRunMemory(100000), 0);
    EXPECT_EQ(GetSpareRunMemory(200000), 0);
    SetRunMemoryBudget(0);
    const int64_t machineSpare = GetSpareRunMemory(0);
    EXPECT_GE(machineSpare, 7 * machine); // what 8 images of the machine share come to
    SetRunMemoryBudget(machineSpare * 2);
    EXPECT_EQ(GetSpareRunMemory(0), machineSpare);
    SetRunMemoryBudget(0);

    // The budget reaches the cut: a 300x300x20 stack that fits the machine in one piece
    // is cut when the budget is small.
    Settings s{D, {300, 300, 20}, 10, 5, 20, on, off, off, off, 0};
    SetRunMemoryBudget(1600000);
    auto c = Make(s);
    ASSERT_EQ(c->CalculateSubvolumes(), 0);
    SetRunMemoryBudget(0);
    EXPECT_GT(c->GetSubvolumeCount().x * c->GetSubvolumeCount().y, 1u);
}
