#include <gtest/gtest.h>

#include "math/cPixelPrint.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

// An image is known again by its pixels; a frozen one printed last by its number alone,
// so that even a write behind its holder's promise goes unseen.
TEST(cPixelPrint, KnowsAnImageByItsPixelsAndAFrozenOneByItsNumber) {
    const cImageDimensions size{9, 4, 3};
    const cFloatImagePtr a = Random(size, 1, -1.0f, 1.0f), sameAsA = Copy(a);
    const cFloatImagePtr other = Random(size, 2, -1.0f, 1.0f), otherCopy = Copy(other);
    a->Freeze();
    sameAsA->Freeze();
    other->Freeze();
    cPixelPrint print;
    const struct {
        const char* what;
        cFloatImagePtr image;
        bool known;
    } steps[] = {
        {"nothing printed before", a, false},
        {"the same frozen image", a, true},
        {"another frozen image of the same pixels", sameAsA, true},
        {"another frozen image of other pixels", other, false},
        {"an image of the same pixels, not frozen", otherCopy, true},
        {"the frozen image printed before that", other, true},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(print.Retake(*step.image), step.known);
    }
    *other->GetPixelPointer(2, 1, 1) += 1.0f;
    EXPECT_TRUE(print.Retake(*other));
    *otherCopy->GetPixelPointer(2, 1, 1) += 1.0f;
    EXPECT_FALSE(print.Retake(*otherCopy));
    print.Forget();
    EXPECT_FALSE(print.Retake(*a));
    EXPECT_NE(a->GetFrozenNumber(), sameAsA->GetFrozenNumber());
}
