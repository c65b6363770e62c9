#include <gtest/gtest.h>

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
} // namespace

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
}
