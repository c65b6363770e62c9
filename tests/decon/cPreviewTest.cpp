#include <gtest/gtest.h>

#include <vector>

#include "core/cDeconLog.h"
#include "decon/c2DPreview.h"
#include "decon/c2DPreviewWithMaxProjectionFile.h"
#include "decon/c3DPreview.h"
#include "decon/c3DPreviewWithFile.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;

namespace {

cFloatImagePtr MakeImage(uint32_t x, uint32_t y, uint32_t z, float value = 0.0f) {
    return OvidaneTest::Constant({x, y, z}, value);
}

float& At(const cFloatImagePtr& image, uint32_t x, uint32_t y, uint32_t z = 0) {
    return *image->GetPixelPointer(x, y, z);
}

// A subvolume whose every pixel tells where it lies: 100·z + 10·y + x + 1.
cFloatImagePtr Coded(uint32_t x, uint32_t y, uint32_t z) {
    return OvidaneTest::MakeImage({x, y, z}, [](uint32_t i, uint32_t j, uint32_t k) {
        return 100.0f * k + 10.0f * j + i + 1;
    });
}

struct Tiling {
    int32_t lowX = 0, lowY = 0, lowZ = 0, highX = 0, highY = 0, highZ = 0;
    int32_t countX = 1, countY = 1, indexX = 0, indexY = 0, overlap = 0;
    int32_t iteration = 0;
    float maximum = 50.0f;
    int32_t modality = DEC_FLAG_MOD_WF_FLUORESCENCE;
};

cCountedPtr<cDeconLog> LogFor(const Tiling& t) {
    cCountedPtr<cDeconLog> log(new cDeconLog());
    cDeconParameter& p = log->GetParameters();
    p.SetInt(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND, t.lowX);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND, t.lowY);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, t.lowZ);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND, t.highX);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND, t.highY);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND, t.highZ);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, t.countX);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, t.countY);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XINDEX, t.indexX);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YINDEX, t.indexY);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, t.overlap);
    p.SetInt(DEC_IPARAMS_CURRENT_ITERATION, t.iteration);
    p.SetReal(DEC_RPARAMS_IMAGE_MAXIMUM, t.maximum);
    p.SetFlag(DEC_FPARAMS_MODALITY, t.modality);
    return log;
}

using OvidaneTest::Pixels;

} // namespace

// One subvolume with guard bands: 4 x 3 interior pixels, depth 2, so the preview is
// 4 + 2 + 1 by 3 + 2 + 1 pixels with the dividers in row 3 and column 4.
TEST(cPreview, OneSubvolumeFillsThePanelsAndDrawsDividersOnTheFirstPassOnly) {
    Tiling t;
    t.lowX = t.lowY = t.highX = t.highY = 1;
    t.highZ = 1;
    cFloatImagePtr image = Coded(6, 5, 3);
    cCountedPtr<cDeconLog> log = LogFor(t);
    cFloatImagePtr preview = MakeImage(7, 6, 1, -7.0f);
    c3DPreview plain(log);
    plain.Update(preview, image);

    // Interior pixel (i, j, k) is image pixel (1 + i, 1 + j, k); the guard plane z = 2 with
    // the largest values must stay out of every panel.
    auto value = [](uint32_t i, uint32_t j, uint32_t k) {
        return 100.0f * k + 10.0f * (1 + j) + (1 + i) + 1;
    };
    for (uint32_t j = 0; j < 3; ++j)
        for (uint32_t i = 0; i < 4; ++i)
            EXPECT_EQ(At(preview, i, j), value(i, j, 1)) << i << "," << j;
    for (uint32_t k = 0; k < 2; ++k) {
        for (uint32_t i = 0; i < 4; ++i)
            EXPECT_EQ(At(preview, i, 4 + k), value(i, 2, k)) << "xz " << i << "," << k;
        for (uint32_t j = 0; j < 3; ++j)
            EXPECT_EQ(At(preview, 5 + k, j), value(3, j, k)) << "zy " << k << "," << j;
    }
    for (uint32_t i = 0; i < 7; ++i)
        EXPECT_EQ(At(preview, i, 3), 50.0f) << i;
    for (uint32_t j = 0; j < 6; ++j)
        EXPECT_EQ(At(preview, 4, j), 50.0f) << j;
    // The corner where the strips meet belongs to nobody.
    EXPECT_EQ(At(preview, 5, 4), -7.0f);
    EXPECT_EQ(At(preview, 6, 5), -7.0f);

    // A later pass leaves the dividers as they stand.
    log->GetParameters().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 1);
    At(preview, 0, 3) = -1.0f;
    plain.Update(preview, image);
    EXPECT_EQ(At(preview, 0, 3), -1.0f);

    // The other panel kinds differ only in their dividers: brighter than the data for the
    // 2D and the 3D file preview, none for the running maximum.
    log->GetParameters().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 0);
    OvidaneTest::TempDir dir;
    log->GetParameters().SetString(DEC_SPARAMS_PREVIEW_FILE, dir.File("p"));
    cCountedPtr<cPreview> kinds[] = {new c2DPreview(log), new c3DPreviewWithFile(log),
                                     new c2DPreviewWithMaxProjectionFile(log)};
    const float dividers[] = {87.5f, 87.5f, -7.0f};
    for (int n = 0; n < 3; ++n) {
        cFloatImagePtr other = MakeImage(7, 6, 1, -7.0f);
        kinds[n]->Update(other, image);
        EXPECT_EQ(At(other, 1, 3), dividers[n]) << kinds[n]->GetObjectName();
        EXPECT_EQ(At(other, 4, 1), dividers[n]) << kinds[n]->GetObjectName();
        EXPECT_EQ(At(other, 2, 1), value(2, 1, 1)) << kinds[n]->GetObjectName();
    }
    EXPECT_EQ(std::string(kinds[0]->GetObjectName()), "c2DPreview");
}

// A flat subvolume of depth 1 makes one-pixel strips. Along x the stack is cut in three
// tiles of 6 interior pixels that overlap by 2: 14 pixels in all. Each tile gives up one
// pixel on both sides, and the last one is stretched to end at the panel's edge.
TEST(cPreview, ThreeTilesMeetInTheirOverlapsAndTheLastEndsAtThePanelEdge) {
    Tiling t;
    t.lowX = t.highX = 1;
    t.countX = 3;
    t.overlap = 2;
    cFloatImagePtr preview = MakeImage(16, 4, 1, -7.0f);
    for (int32_t index = 0; index < 3; ++index) {
        t.indexX = index;
        // Each tile carries its number in the hundreds, so the panel shows who drew where.
        cFloatImagePtr image = Coded(8, 2, 1);
        for (uint32_t j = 0; j < 2; ++j)
            for (uint32_t i = 0; i < 8; ++i)
                At(image, i, j) += 1000.0f * index;
        c2DPreview preview2D(LogFor(t));
        preview2D.Update(preview, image);
    }
    // Tile n covers panel x 4n to 4n + 3 with its image x 2 to 5; the last tile goes on to
    // panel x 13 with image x 7, a pixel of its guard band.
    for (uint32_t x = 0; x < 14; ++x) {
        const uint32_t tile = std::min<uint32_t>(x / 4, 2);
        const uint32_t imageX = x - 4 * tile + 2;
        EXPECT_EQ(At(preview, x, 1), 1000.0f * tile + 10.0f + imageX + 1) << x;
        // The xz strip is the one row below the divider, and shows the maximum over y.
        EXPECT_EQ(At(preview, x, 3), At(preview, x, 1)) << x;
    }
    // The zy strip is one column wide: the last tile drew it, up to its stretched end.
    EXPECT_EQ(At(preview, 15, 0), 2000.0f + 0.0f + 8.0f);
    EXPECT_EQ(At(preview, 14, 0), 87.5f);
}

// Transmitted-light data are shown inverted. The first tile of a fresh picture is drawn
// as it comes; every later update first turns the picture back to data values, draws, and
// inverts again, so drawing the same tile twice gives the same picture.
TEST(cPreview, TransmittedLightIsShownInvertedAndInvertedBackBeforeEachLaterTile) {
    Tiling t;
    t.modality = DEC_FLAG_MOD_TL_BRIGHTFIELD;
    t.maximum = 40.0f;
    cFloatImagePtr image = Coded(4, 3, 1); // values 1 to 24
    cFloatImagePtr preview = MakeImage(6, 5, 1, 0.0f);
    c3DPreview preview3D(LogFor(t));
    preview3D.Update(preview, image);
    // Largest 40 (the dividers), smallest 0 (the empty corner): p becomes 40 - p, and the
    // dividers fall below the guard value.
    EXPECT_FLOAT_EQ(At(preview, 2, 1), 40.0f - 13.0f);
    EXPECT_FLOAT_EQ(At(preview, 5, 4), 40.0f);
    EXPECT_FLOAT_EQ(At(preview, 0, 3), 1e-20f);
    const std::vector<float> first = Pixels(preview);

    cCountedPtr<cDeconLog> later = LogFor(t);
    later->GetParameters().SetInt(DEC_IPARAMS_CURRENT_ITERATION, 1);
    c3DPreview again(later);
    again.Update(preview, image);
    const std::vector<float> second = Pixels(preview);
    for (std::size_t n = 0; n < first.size(); ++n)
        EXPECT_NEAR(second[n], first[n], 1e-5f) << n;
}
