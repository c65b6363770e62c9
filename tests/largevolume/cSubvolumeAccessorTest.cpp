#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "core/cDeconLog.h"
#include "core/cException.h"
#include "largevolume/SubvolumeTestFiles.h"
#include "largevolume/cSubvolumeAccessor.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// A subvolume of padded size 10 x 8 x 3 with uneven guard bands, the middle one of two
// in x and the last of three in y.
cCountedPtr<cDeconLog> SubvolumeLog(const std::string& result) {
    cCountedPtr<cDeconLog> log(new cDeconLog);
    cDeconParameter& p = log->GetParameters();
    p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, result);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, 10);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, 8);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, 3);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND, 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND, 3);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND, 0);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, 4);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XINDEX, 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YINDEX, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, 3);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, 1);
    return log;
}

// The mosaic that slice `z` of `file` (interior 5 x 5 from (2, 1, 1)) makes in tile (1, 2),
// `outside` elsewhere.
std::vector<float> Mosaic(const Stack& file, uint32_t z, float outside) {
    return Pixels(MakeImage({10, 15, 1}, [&](uint32_t x, uint32_t y, uint32_t) {
        return x >= 5 && y >= 10 ? file.At(x - 5 + 2, y - 10 + 1, z + 1) : outside;
    }));
}

TEST(cSubvolumeAccessorTest, PlacesInteriorSlicesInItsTileAndDeletesWhatItRead) {
    TempDir dir;
    const std::string result = dir.File("result");
    const Stack restored = PatternStack({10, 8, 3});
    Stack saved = restored;
    for (float& p : saved.pixels)
        p = -p;
    WriteRaw(result, restored.pixels);
    WriteRaw(result + "_I2", saved.pixels);

    cSubvolumeAccessor accessor;
    accessor.Setup(SubvolumeLog(result));
    EXPECT_EQ(accessor.GetInteriorSize(), (cImageDimensions{5, 5, 2}));
    // Bands as wide as the subvolume leave no interior to place.
    auto noInterior = SubvolumeLog(result);
    noInterior->GetParameters().SetInt(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND, 8);
    EXPECT_THROW(cSubvolumeAccessor().Setup(noInterior), cException);

    cFloatImagePtr mosaic = Constant({10, 15, 1}, -7.0f);
    for (uint32_t z = 0; z < 2; ++z) {
        accessor.ReadSlice(z, mosaic);
        EXPECT_EQ(Pixels(mosaic), Mosaic(restored, z, -7.0f)) << "slice " << z;
    }
    EXPECT_THROW(accessor.ReadSlice(2, mosaic), cException);

    // A saved iteration is read the same way; deleting takes the result and the open file.
    accessor.OpenFile(result + "_I2");
    accessor.ReadSlice(1, mosaic);
    EXPECT_EQ(Pixels(mosaic), Mosaic(saved, 1, -7.0f));
    accessor.CloseAndDelete();
    EXPECT_FALSE(std::filesystem::exists(result));
    EXPECT_FALSE(std::filesystem::exists(result + "_I2"));
    EXPECT_EQ(dir.Count(), 0u);

    // A restoration that left no result can't be blended.
    cSubvolumeAccessor missing;
    EXPECT_THROW(missing.Setup(SubvolumeLog(dir.File("none"))), cException);
}

} // namespace
