#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/cException.h"
#include "largevolume/cBlendingMaskCreator.h"

using namespace Ovidane;

namespace {

float At(const cFloatImagePtr& image, uint32_t x, uint32_t y) {
    return *image->GetPixelPointer(x, y, 0);
}

// The weights of every tile of a counts.x by counts.y layout added up where the tiles land
// in the joined slice, tiles advancing by their size less the overlap.
std::vector<double> WeightSums(cBlendingMaskCreator& masks, cImageDimensions counts,
                               cImageDimensions size, uint32_t overlap) {
    const uint32_t width = counts.x * size.x - (counts.x - 1) * overlap;
    const uint32_t height = counts.y * size.y - (counts.y - 1) * overlap;
    std::vector<double> sums(std::size_t{width} * height, 0.0);
    for (uint32_t iy = 0; iy < counts.y; ++iy)
        for (uint32_t ix = 0; ix < counts.x; ++ix) {
            const cFloatImagePtr mask = masks.GetMask(ix, iy);
            EXPECT_EQ(mask->GetDimensions(), (cImageDimensions{size.x, size.y, 1}));
            for (uint32_t y = 0; y < size.y; ++y)
                for (uint32_t x = 0; x < size.x; ++x)
                    sums[std::size_t{iy * (size.y - overlap) + y} * width +
                         ix * (size.x - overlap) + x] += At(mask, x, y);
        }
    return sums;
}

// Every pixel of the joined slice, seams and four-tile corners included, gets a total
// weight of 1, whatever the overlap, so tiles keep weight 1 along the stack's outer edges,
// where no neighbour shares them; single-precision ramps are good to a few ulp.
TEST(cBlendingMaskCreatorTest, WeightsOfAllTilesAddUpToOneEverywhere) {
    const cImageDimensions size{20, 16, 1};
    for (const cImageDimensions counts :
         {cImageDimensions{3, 3, 1}, cImageDimensions{2, 1, 1}, cImageDimensions{1, 4, 1}}) {
        for (uint32_t overlap : {1u, 2u, 3u, 6u, 7u}) {
            SCOPED_TRACE(testing::Message()
                         << counts.x << "x" << counts.y << " tiles, overlap " << overlap);
            cBlendingMaskCreator masks;
            masks.Setup(counts, size, overlap);
            const std::vector<double> sums = WeightSums(masks, counts, size, overlap);
            EXPECT_EQ(std::count_if(sums.begin(), sums.end(),
                                    [](double s) { return std::fabs(s - 1.0) > 1e-6; }),
                      0);
        }
    }
}

TEST(cBlendingMaskCreatorTest, TilesFadeAlongARaisedCosineTowardsNeighboursOnly) {
    const cImageDimensions size{20, 16, 1};
    const uint32_t o = 6;
    cBlendingMaskCreator masks;
    masks.Setup({3, 3, 1}, size, o);

    // The middle tile fades on all four sides; row 8 and column 10 lie outside the strips.
    const cFloatImagePtr middle = masks.GetMask(1, 1);
    const double pi = 3.14159265358979;
    for (uint32_t i = 0; i < o; ++i) {
        const float w = float(0.5 - 0.5 * std::cos(pi * i / (o - 1)));
        EXPECT_NEAR(At(middle, i, 8), w, 1e-6) << i;
        EXPECT_NEAR(At(middle, size.x - 1 - i, 8), w, 1e-6) << i;
        EXPECT_NEAR(At(middle, 10, i), w, 1e-6) << i;
        EXPECT_NEAR(At(middle, 10, size.y - 1 - i), w, 1e-6) << i;
    }
    EXPECT_EQ(At(middle, o, 8), 1.0f);
    // The corner weight is the product of the two edge weights.
    EXPECT_NEAR(At(middle, 2, 3), At(middle, 2, 8) * At(middle, 10, 3), 1e-7);

    // An overlap of 2 hands each side one column whole; an overlap of 1 shares its one
    // column half and half (the other sides follow from the sums above).
    masks.Setup({2, 1, 1}, size, 2);
    EXPECT_EQ(At(masks.GetMask(0, 0), size.x - 2, 5), 1.0f);
    EXPECT_EQ(At(masks.GetMask(0, 0), size.x - 1, 5), 0.0f);
    masks.Setup({2, 1, 1}, size, 1);
    EXPECT_EQ(At(masks.GetMask(0, 0), size.x - 2, 5), 1.0f);
    EXPECT_EQ(At(masks.GetMask(0, 0), size.x - 1, 5), 0.5f);

    // Tiles along a cut axis must be longer than the overlap.
    EXPECT_THROW(masks.Setup({2, 1, 1}, size, size.x), cException);
}

} // namespace
