#include "largevolume/cBlendingMaskCreator.h"

#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {

// Where a tile sits along one axis decides which of its edges fade.
enum class cTilePlace { First, Inner, Last, Alone };

cTilePlace PlaceOf(uint32_t index, uint32_t count) {
    if (count < 2)
        return cTilePlace::Alone;
    if (index == 0)
        return cTilePlace::First;
    return index + 1 == count ? cTilePlace::Last : cTilePlace::Inner;
}

} // namespace

cBlendingMaskCreator::cBlendingMaskCreator() : cOvdObject("cBlendingMaskCreator") {}

cBlendingMaskCreator::~cBlendingMaskCreator() = default;

void cBlendingMaskCreator::Setup(const cImageDimensions& counts, const cImageDimensions& size,
                                 uint32_t overlap) {
    Guard([&] {
        if (size.x == 0 || size.y == 0)
            Fail("Invalid Dimensions in Setup", 2);
        // Tiles along a cut axis advance by size - overlap; without a step they would pile
        // up on one another.
        if ((counts.x > 1 && overlap >= size.x) || (counts.y > 1 && overlap >= size.y))
            Fail("Invalid Dimensions in Setup", 2);
        mCounts = counts;
        mSize = {size.x, size.y, 1};
        mOverlap = overlap;
        mLowY = mHighY = mLowX = mHighX = cFloatImagePtr();

        const uint32_t sx = mSize.x;
        const uint32_t sy = mSize.y;
        const uint32_t o = overlap;
        // Only an axis with neighbours needs its masks; on the others o may exceed the tile.
        if (counts.y > 1) {
            mLowY = MakeMask({0, o, 0, sx - 1, sy - 1, 0}, {0, sy - 1, 0, sx - 1, sy - 1, 0},
                             {0, 0, 0, sx - 1, o - 1, 0});
            mHighY = MakeMask({0, 0, 0, sx - 1, sy - o - 1, 0}, {0, 0, 0, sx - 1, 0, 0},
                              {0, sy - o, 0, sx - 1, sy - 1, 0});
        }
        if (counts.x > 1) {
            mLowX = MakeMask({o, 0, 0, sx - 1, sy - 1, 0}, {sx - 1, 0, 0, sx - 1, sy - 1, 0},
                             {0, 0, 0, o - 1, sy - 1, 0});
            mHighX = MakeMask({0, 0, 0, sx - o - 1, sy - 1, 0}, {0, 0, 0, 0, sy - 1, 0},
                              {sx - o, 0, 0, sx - 1, sy - 1, 0});
        }
    });
}

cFloatImagePtr cBlendingMaskCreator::MakeMask(const cImageBox& keep, const cImageBox& edge,
                                              const cImageBox& ramp) const {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    cFloatImagePtr mask = NewTile(1.0f);
    if (mOverlap == 0)
        return mask;
    if (mOverlap == 1) {
        // A ramp of one pixel would have to be 0 and 1 at once. Half from each side keeps
        // the weights of the shared column summing to 1 and favours neither tile.
        math->SetRoiToConstant(mask, ramp, 0.5f);
        return mask;
    }
    // The edge line holds the ramp's far end, 0; bridging the gap from the kept box across
    // the tile's end to that line with a raised cosine fills the strip. The edge line
    // itself lies inside the kept box and gets its 1 back afterwards.
    math->SetRoiToConstant(mask, edge, 0.0f);
    math->InterpolateRoi(mask, keep, 2);
    math->SetRoiToConstant(mask, edge, 1.0f);
    return mask;
}

cFloatImagePtr cBlendingMaskCreator::NewTile(float value) const {
    cFloatImagePtr tile(new cOvdImage<float>(mSize, Contiguous3D, GetObjectName()));
    cImageMathManager::Instance().GetImageMath()->SetImageToConstant(tile, value);
    return tile;
}

cFloatImagePtr cBlendingMaskCreator::GetMask(uint32_t ix, uint32_t iy) const {
    return Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        cFloatImagePtr mask = NewTile(1.0f);
        auto fade = [&](cTilePlace place, const cFloatImagePtr& low, const cFloatImagePtr& high) {
            // The first tile fades towards its successor only, the last towards its
            // predecessor only, an inner tile towards both.
            if (place == cTilePlace::First || place == cTilePlace::Inner)
                math->MultiplyImage(mask, high, mask);
            if (place == cTilePlace::Last || place == cTilePlace::Inner)
                math->MultiplyImage(mask, low, mask);
        };
        fade(PlaceOf(ix, mCounts.x), mLowX, mHighX);
        fade(PlaceOf(iy, mCounts.y), mLowY, mHighY);
        return mask;
    });
}

} // namespace Ovidane
