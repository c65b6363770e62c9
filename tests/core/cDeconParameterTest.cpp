#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "core/cDeconParameter.h"

using namespace Ovidane;

namespace {
struct AcceptedRange {
    DecFlagKey key;
    int32_t first, last;
};
// The accepted values of each flag key, written out independently of the library's table.
const AcceptedRange kAccepted[] = {
    {DEC_FPARAMS_DATATYPE, 75, 78},
    {DEC_FPARAMS_MODALITY, 2, 15},
    {DEC_FPARAMS_INITIAL_IMAGE_SOURCE, 18, 22},
    {DEC_FPARAMS_DECON_METHOD, 25, 28},
    {DEC_FPARAMS_INITIAL_GUESS_METHOD, 31, 34},
    {DEC_FPARAMS_PSF_GUESS_METHOD, 37, 40},
    {DEC_FPARAMS_PSF_GENERATION_SOURCE, 43, 44},
    {DEC_FPARAMS_NOISE_SMOOTHING_METHOD, 47, 47},
    {DEC_FPARAMS_FREQUENCY_CON_METHOD, 57, 59},
    {DEC_FPARAMS_STOPPING_CRITERION, 62, 64},
    {DEC_FPARAMS_DARK_CURRENT_METHOD, 67, 68},
    {DEC_FPARAMS_SUBVOLUME_METHOD, 71, 72},
    {DEC_FPARAMS_NOISE_LEVEL, 50, 54},
    {DEC_FPARAMS_PREVIEW_METHOD, 81, 86},
    {DEC_FPARAMS_PSF_PREVIEW_METHOD, 89, 90},
};
constexpr int32_t kSentinel = -12345;
} // namespace

TEST(cDeconParameter, StartsEmptyAndZero) {
    const cDeconParameter p;
    EXPECT_EQ(p.GetObjectName(), "cParameter");
    for (int k = 0; k < kDecStringKeyCount; ++k)
        EXPECT_TRUE(p.GetString(static_cast<DecStringKey>(k)).empty());
    for (int k = 0; k < kDecIntKeyCount; ++k)
        EXPECT_EQ(p.GetInt(static_cast<DecIntKey>(k)), 0);
    for (int k = 0; k < kDecInt64KeyCount; ++k)
        EXPECT_EQ(p.GetInt64(static_cast<DecInt64Key>(k)), 0);
    for (int k = 0; k < kDecRealKeyCount; ++k)
        EXPECT_EQ(p.GetReal(static_cast<DecRealKey>(k)), 0.0f);
    for (int k = 0; k < kDecFlagKeyCount; ++k)
        EXPECT_EQ(p.GetFlag(static_cast<DecFlagKey>(k)), 0);
    for (int k = 0; k < kDecBoolKeyCount; ++k)
        EXPECT_FALSE(p.GetBool(static_cast<DecBoolKey>(k)));
}

TEST(cDeconParameter, GettersHandOutTheStoredValueByReference) {
    cDeconParameter p;
    p.GetInt(DEC_IPARAMS_SLICE_INDEX) = 7;
    p.GetString(DEC_SPARAMS_PSF_PREVIEW_FILE) += "preview";
    p.GetReal(DEC_RPARAMS_IMAGE_MAXIMUM) = 2.5f;
    p.GetBool(DEC_BPARAMS_RESERVED_18) = true;
    p.GetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE) = -3;
    EXPECT_EQ(p.GetInt(DEC_IPARAMS_SLICE_INDEX), 7);
    EXPECT_EQ(p.GetString(DEC_SPARAMS_PSF_PREVIEW_FILE), "preview");
    EXPECT_EQ(p.GetReal(DEC_RPARAMS_IMAGE_MAXIMUM), 2.5f);
    EXPECT_TRUE(p.GetBool(DEC_BPARAMS_RESERVED_18));
    EXPECT_EQ(p.GetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE), -3);
}

TEST(cDeconParameter, SetFlagStoresExactlyTheAcceptedRangeAndKeepsTheOldValueOtherwise) {
    for (const auto& range : kAccepted) {
        SCOPED_TRACE(range.key);
        cDeconParameter p;
        for (int32_t value = -1; value <= 100; ++value) {
            p.SetFlag(range.key, range.first); // a known old value
            p.SetFlag(range.key, value);
            const bool accepted = value >= range.first && value <= range.last;
            EXPECT_EQ(p.GetFlag(range.key), accepted ? value : range.first) << value;
        }
    }
    // The examples that matter to the run: an out-of-range noise level and image source.
    cDeconParameter p;
    p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, DEC_FLAG_NOISE_LEVEL_HIGH);
    p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, 55);
    EXPECT_EQ(p.GetFlag(DEC_FPARAMS_NOISE_LEVEL), DEC_FLAG_NOISE_LEVEL_HIGH);
    p.SetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE, 23);
    EXPECT_EQ(p.GetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE), 0);
}

TEST(cDeconParameter, FlagValuesAreDisjointAndGapsBelongToNoKey) {
    const int32_t gaps[] = {16, 17, 23, 24, 29, 30, 35, 36, 41, 42, 45, 46, 48, 49,
                            55, 56, 60, 61, 65, 66, 69, 70, 73, 74, 79, 80, 87, 88};
    for (int32_t value = 0; value <= 100; ++value) {
        int acceptingKeys = 0;
        for (const auto& range : kAccepted) {
            cDeconParameter p;
            p.SetFlag(range.key, range.first); // never 0, so a refused 0 is seen as refused
            p.SetFlag(range.key, value);
            acceptingKeys += p.GetFlag(range.key) == value ? 1 : 0;
        }
        const bool inGap = std::find(std::begin(gaps), std::end(gaps), value) != std::end(gaps);
        const bool unused = value < 2 || value > 90;
        EXPECT_EQ(acceptingKeys, (inGap || unused) ? 0 : 1) << value;
    }
}

TEST(cDeconParameter, SetFlagOnAKeyOutsideTheEnumerationFails) {
    for (const int32_t key : {0, 16, -1}) {
        cDeconParameter p;
        try {
            p.SetFlag(static_cast<DecFlagKey>(key), DEC_FLAG_DTF_FLOAT_32BIT);
            ADD_FAILURE() << "key " << key << " accepted";
        } catch (const cException& e) {
            EXPECT_EQ(e.GetMessage(), "Invalid Flag Parameter");
            EXPECT_EQ(e.GetCode(), 2);
            EXPECT_EQ(e.GetWhere(), "cParameter/cParameter");
        }
    }
}

TEST(cDeconParameter, FlagValueNames) {
    EXPECT_STREQ(DecFlagValueName(DEC_FLAG_MOD_GENERIC), "DEC_FLAG_MOD_GENERIC");
    EXPECT_STREQ(DecFlagValueName(DEC_FLAG_DTF_UCHAR_8BIT), "DEC_FLAG_DTF_UCHAR_8BIT");
    EXPECT_STREQ(DecFlagValueName(DEC_FLAG_IIS_MAXIMUM_PROJECTION),
                 "cMaximumProjectionInitialImageSource");
    EXPECT_STREQ(DecFlagValueName(DEC_FLAG_PM_2D_PREVIEW_WITH_MAX_PROJECTION_FILE),
                 "c2DPreviewWithMaxProjectionFile");
    EXPECT_STREQ(DecFlagValueName(DEC_FLAG_PPM_2D_PSF_PREVIEW_WITH_FILE), "c2DPSFPreviewWithFile");
    // Accepted working values without a name.
    for (const int32_t value : {0, 2, 11, 12, 13, 14, 54, 64, 83, kSentinel})
        EXPECT_STREQ(DecFlagValueName(value), "<invalid>") << value;
}
