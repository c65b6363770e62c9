#include <gtest/gtest.h>

#include "core/cException.h"
#include "decon/cFlatSheetPsfFirstGuess.h"

using namespace Ovidane;

TEST(cFlatSheetPsfFirstGuess, FillsWithOneAtTheOriginalsSizeAndRefusesWithoutOriginal) {
    cFlatSheetPsfFirstGuess guess;
    cFloatImagePtr psf;
    cFloatImagePtr original;
    try {
        guess.Apply(psf, original);
        ADD_FAILURE() << "no original, yet a PSF";
    } catch (const cException& e) {
        EXPECT_EQ(e.GetMessage(), "NULL input image in FlatSheetPsfFirstGuess");
        EXPECT_EQ(e.GetCode(), OVD_ERR_PARAMETER);
    }
    EXPECT_FALSE(psf);

    original = cFloatImagePtr(new cOvdImage<float>({6, 4, 3}, "test"));
    guess.Apply(psf, original);
    ASSERT_TRUE(psf);
    EXPECT_NE(psf.Get(), original.Get());
    EXPECT_EQ(psf->GetDimensions(), original->GetDimensions());
    for (uint32_t z = 0; z < 3; ++z)
        for (uint32_t y = 0; y < 4; ++y)
            for (uint32_t x = 0; x < 6; ++x)
                ASSERT_EQ(psf->GetLinePointer(y, z)[x], 1.0f);

    // A PSF handed in is filled where it stands.
    cFloatImagePtr given(new cOvdImage<float>({6, 4, 3}, "test"));
    cFloatImagePtr same = given;
    guess.Apply(given, original);
    EXPECT_EQ(given.Get(), same.Get());
    EXPECT_EQ(given->GetLinePointer(3, 2)[5], 1.0f);
}
