#include <gtest/gtest.h>

#include <string>

#include "core/cException.h"
#include "decon/cSharedPsfFirstGuess.h"

using namespace Ovidane;

namespace {

// A guess that numbers its PSFs: each Apply fills every pixel with its call count.
class cCountingGuess : public cPsfFirstGuess {
public:
    cCountingGuess() : cPsfFirstGuess("cCountingGuess") {}
    void SetFileName(const std::string& name) override { file = name; }
    void Apply(cFloatImagePtr& psf, cFloatImagePtr& /*original*/) override {
        ++calls;
        if (!psf)
            psf = new cOvdImage<float>({5, 4, 3}, "test");
        for (uint32_t z = 0; z < 3; ++z)
            for (uint32_t y = 0; y < 4; ++y)
                for (uint32_t x = 0; x < 5; ++x)
                    psf->GetLinePointer(y, z)[x] = float(calls * 100 + x + 10 * y + z);
    }
    int calls = 0;
    std::string file;
};

} // namespace

TEST(cSharedPsfFirstGuess, MakesThePsfOnceAndCopiesItAfterwards) {
    cCountedPtr<cCountingGuess> counting(new cCountingGuess);
    cSharedPsfFirstGuess shared(counting);
    shared.SetFileName("psf.raw");
    EXPECT_EQ(counting->file, "psf.raw");

    cFloatImagePtr original, first, second(new cOvdImage<float>({5, 4, 3}, "test"));
    shared.Apply(first, original);
    ASSERT_TRUE(first);
    // What a restoration does to its PSF afterwards (scaling it, say) stays its own; a
    // later PSF is a copy of the first as made, whether made here or handed in.
    first->GetLinePointer(0, 0)[0] = -1.0f;
    cFloatImagePtr third;
    shared.Apply(second, original);
    shared.Apply(third, original);
    EXPECT_EQ(counting->calls, 1);
    for (const cFloatImagePtr& copy : {second, third})
        for (uint32_t z = 0; z < 3; ++z)
            for (uint32_t y = 0; y < 4; ++y)
                for (uint32_t x = 0; x < 5; ++x)
                    ASSERT_EQ(copy->GetLinePointer(y, z)[x], float(100 + x + 10 * y + z));

    cFloatImagePtr other(new cOvdImage<float>({5, 4, 2}, "test"));
    try {
        shared.Apply(other, original);
        ADD_FAILURE() << "a PSF of another size was filled";
    } catch (const cException& e) {
        EXPECT_EQ(e.GetMessage(), "Invalid Dimensions in Apply");
        EXPECT_EQ(e.GetCode(), OVD_ERR_PARAMETER);
    }
}
