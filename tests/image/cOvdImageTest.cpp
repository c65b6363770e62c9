#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/cException.h"
#include "image/RegionSourceForTests.h"
#include "image/cOvdImage.h"

using namespace Ovidane;
using Testing::cScopedPool;

namespace {

constexpr cImageDimensions kSize{16, 8, 5};
constexpr std::size_t kSliceBytes = 16 * 8 * sizeof(float);

template <class Call>
void ExpectFailure(Call&& call, const std::string& message, uint16_t code = 2) {
    try {
        call();
        ADD_FAILURE() << "expected: " << message;
    } catch (const cException& failure) {
        EXPECT_EQ(failure.GetMessage(), message);
        EXPECT_EQ(failure.GetCode(), code);
    }
}

} // namespace

TEST(cOvdImage, LayoutFollowsTheManagersAnswer) {
    cScopedPool pool(2 * kSliceBytes); // no region of more than two slices

    // A single slice fits in one block: the image is one vector.
    cFloatImage flat({16, 8, 1}, "flat");
    EXPECT_EQ(flat.GetLayout(), Contiguous3D);
    EXPECT_EQ(flat.GetBlockCount(), 1u);
    EXPECT_TRUE(flat.OwnsMemory());

    // Five slices don't: one block per slice, addressed by slice.
    cFloatImage stack(kSize, "stack");
    ASSERT_EQ(stack.GetLayout(), Contiguous2D);
    EXPECT_EQ(stack.GetBlockCount(), 5u);
    EXPECT_EQ(stack.GetElementsPerBlock(), 16u * 8u);
    for (uint32_t z = 0; z < 5; ++z) {
        float* const slice = stack.GetSlicePointer(z);
        EXPECT_EQ(stack.GetLinePointer(7, z), slice + 7 * 16);
        EXPECT_EQ(stack.GetPixelPointer(15, 7, z), slice + 7 * 16 + 15);
        slice[0] = static_cast<float>(z); // every slice is writable memory of its own
    }
    for (uint32_t z = 0; z < 5; ++z)
        EXPECT_EQ(*stack.GetSlicePointer(z), static_cast<float>(z));

    // The z index is checked in this layout only, by every pointer operation.
    ExpectFailure([&] { stack.GetSlicePointer(5); }, "Z index out of bounds");
    ExpectFailure([&] { stack.GetLinePointer(0, 5); }, "Z index out of bounds");
    ExpectFailure([&] { stack.GetPixelPointer(0, 0, 5); }, "Z index out of bounds");
    EXPECT_EQ(flat.GetSlicePointer(3), flat.GetSlicePointer(0) + 3 * 16 * 8);

    // One block for the whole stack is refused outright; no image is left behind.
    ExpectFailure([&] { cFloatImage whole(kSize, Contiguous3D, "whole"); },
                  "Unable to allocate 2D Contiguous memory", OVD_ERR_MEMORY);
}

TEST(cOvdImage, WrappedMemoryStaysWithItsOwner) {
    cScopedPool pool;
    std::vector<float> pixels(kSize.Voxels(), 1.0f);
    std::vector<std::vector<float>> planes(3, std::vector<float>(4 * 2, 2.0f));
    float* table[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    {
        cFloatImage whole(pixels.data(), kSize, Contiguous3D, "outside");
        EXPECT_FALSE(whole.OwnsMemory());
        EXPECT_EQ(whole.GetPixelPointer(1, 1, 1), pixels.data() + (8 + 1) * 16 + 1);
        cFloatImage sliced(table, 4, 2, 3, Contiguous2D, "outside");
        EXPECT_FALSE(sliced.OwnsMemory());
        EXPECT_EQ(sliced.GetLayout(), Contiguous2D);
        EXPECT_EQ(sliced.GetPixelPointer(3, 1, 2), planes[2].data() + 7);
        ExpectFailure([&] { sliced.GetSlicePointer(3); }, "Z index out of bounds");
    }
    // The images are gone, the memory is not (the sanitizer build catches a wrong free).
    EXPECT_EQ(pixels.back(), 1.0f);
    EXPECT_EQ(planes[2].back(), 2.0f);
    EXPECT_EQ(pool.source.acquired, 0);

    table[1] = nullptr;
    ExpectFailure([&] { cFloatImage bad(table, 4, 2, 3, Contiguous2D, "x"); }, "NULL Array");
}

// Plenty of memory: even a request for slices gets one vector, and a band cut from it along
// the first axis points into it.
TEST(cOvdImage, PlentyOfMemoryGivesOneVectorAndSubImagesAreViewsIntoIt) {
    cScopedPool pool;
    cFloatImage image(kSize, Contiguous2D, "img");
    EXPECT_EQ(image.GetLayout(), Contiguous3D);
    EXPECT_EQ(image.GetPixelPointer(3, 2, 4), image.GetSlicePointer(0) + (8 * 4 + 2) * 16 + 3);
    std::unique_ptr<cFloatImage> band(image.GetSubImageFirstAxis(2, 3));
    EXPECT_EQ(band->GetDimensions(), (cImageDimensions{2, 8, 5}));
    EXPECT_EQ(band->GetSlicePointer(0), image.GetSlicePointer(0) + 2 * 8 * 5);
    ExpectFailure([&] { delete image.GetSubImageFirstAxis(15, 16); },
                  "SubImage is outside of Original Image.");
}
