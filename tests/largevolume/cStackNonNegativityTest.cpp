// The whole-stack non-negativity step, fed a slice at a time, must do what the constraint
// does to the same pixels in one image: the same pedestal search, bit for bit.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "largevolume/cStackNonNegativity.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;

namespace {

cFloatImagePtr Slice(const std::vector<float>& values, uint32_t w, uint32_t h, uint32_t z) {
    cFloatImagePtr slice(new cOvdImage<float>(cImageDimensions{w, h, 1}, "test"));
    std::memcpy(slice->GetSlicePointer(0), values.data() + std::size_t(z) * w * h,
                sizeof(float) * w * h);
    return slice;
}

} // namespace

TEST(cStackNonNegativity, SlicesGetThePedestalAndScaleTheConstraintGivesTheWholeImage) {
    constexpr uint32_t w = 24, h = 20, d = 6;
    struct Case {
        const char* what;
        float low, high;     // the range of most pixels
        float deep;          // a few pixels reach down to here
        uint32_t deepPixels; // how many
    };
    const Case cases[] = {
        {"no negative pixel", 1.0f, 50.0f, 2.0f, 0},
        {"negative pixels below the tolerated share", 0.0f, 50.0f, -30.0f, 40},
        {"a deep minimum, the search climbs many steps", -3.0f, 50.0f, -5000.0f, 30},
        {"most of the stack negative", -200.0f, 20.0f, -900.0f, 10},
        {"a minimum above -1.1, the search stops at once", -1.05f, 5.0f, -1.05f, 0},
    };
    std::mt19937 random(3);
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<float> values(std::size_t(w) * h * d);
        std::uniform_real_distribution<float> value(c.low, c.high);
        for (float& v : values)
            v = value(random);
        for (uint32_t i = 0; i < c.deepPixels; ++i)
            values[(i * 7919u) % values.size()] = c.deep * (1.0f - 0.01f * float(i));
        const float sum = 1000.0f;

        cFloatImagePtr whole(new cOvdImage<float>(cImageDimensions{w, h, d}, "test"));
        for (uint32_t z = 0; z < d; ++z)
            std::memcpy(whole->GetSlicePointer(z), values.data() + std::size_t(z) * w * h,
                        sizeof(float) * w * h);
        math->NonNegativityLinearCompression(whole, sum, 0.02f, whole);

        cStackNonNegativity step(sum, 0.02f, double(w) * h * d);
        for (uint32_t z = 0; z < d; ++z)
            step.FirstLook(Slice(values, w, h, z));
        if (step.NeedsPedestal())
            for (uint32_t z = 0; z < d; ++z)
                step.SecondLook(Slice(values, w, h, z));
        for (uint32_t z = 0; z < d; ++z) {
            const cFloatImagePtr slice = Slice(values, w, h, z);
            step.Apply(slice);
            EXPECT_EQ(std::memcmp(slice->GetSlicePointer(0), whole->GetSlicePointer(z),
                                  sizeof(float) * w * h),
                      0)
                << "slice " << z << ", pedestal " << step.GetPedestal();
        }
    }
}
