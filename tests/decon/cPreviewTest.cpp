#include <gtest/gtest.h>

#include <vector>

#include "core/cDeconLog.h"
#include "decon/c3DPreview.h"
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
