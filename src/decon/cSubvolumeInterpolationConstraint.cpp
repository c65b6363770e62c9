#include "decon/cSubvolumeInterpolationConstraint.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {

// The weights of a guard band of w pixels: a raised cosine rising from 0 to 1. A band of
// one pixel takes the midpoint 0.5, so that the two parts of the line folded onto each
// other still sum to 1; an empty band keeps one unused entry.
std::vector<float> Ramp(uint32_t w) {
    constexpr float kPi = 3.14159265f;
    if (w <= 1)
        return {0.5f};
    std::vector<float> ramp(w);
    for (uint32_t i = 0; i < w; ++i)
        ramp[i] = 0.5f - 0.5f * std::cos(kPi * static_cast<float>(i) / static_cast<float>(w - 1));
    return ramp;
}

// Along one axis of the work plane: the run of plane indices first..last that take the
// image's pixels one to one, starting at image index source. Plane index 0 stands at image
// index offset − w; the plane indices before the run repeat the image's first pixel, those
// after it the last one. When the whole plane lies past the image's far edge, the run is
// plane index 0 alone, taking the image's last pixel.
struct cAxisRun {
    uint32_t first;
    uint32_t last;
    uint32_t source;
};

cAxisRun AxisRun(uint32_t offset, uint32_t w, uint32_t planeSize, uint32_t imageSize) {
    const int64_t start = int64_t{offset} - w;
    const int64_t first = std::max<int64_t>(0, -start);
    const int64_t last = std::min<int64_t>(int64_t{planeSize} - 1, int64_t{imageSize} - 1 - start);
    if (first > last)
        return {0, 0, imageSize - 1};
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(last),
            static_cast<uint32_t>(start + first)};
}

cImageBox Rows(uint32_t first, uint32_t count, uint32_t width) {
    return {0, first, 0, width - 1, first + count - 1, 0};
}

cImageBox Columns(uint32_t first, uint32_t count, uint32_t height) {
    return {first, 0, 0, first + count - 1, height - 1, 0};
}

cImageBox Whole(const cFloatImagePtr& plane) {
    return {0, 0, 0, plane->GetSizeX() - 1, plane->GetSizeY() - 1, 0};
}

// A band of the work plane's weights, laid out so that a fade is one multiplication of
// boxes: along y, `count` rows of `length` pixels, row k holding the ramp's entry k (rising)
// or w − 1 − k (falling); along x the same in columns.
cFloatImagePtr WeightBand(const std::vector<float>& ramp, uint32_t w, uint32_t length, bool alongY,
                          bool rising, const std::string& owner) {
    const cImageDimensions size =
        alongY ? cImageDimensions{length, w, 1} : cImageDimensions{w, length, 1};
    cFloatImagePtr band(new cFloatImage(size, owner));
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    for (uint32_t k = 0; k < w; ++k) {
        const float weight = rising ? ramp[k] : ramp[w - 1 - k];
        math->SetRoiToConstant(band, alongY ? Rows(k, 1, length) : Columns(k, 1, length), weight);
    }
    return band;
}

// Slice z of image seen as an image of its own, without a copy.
cFloatImagePtr SliceView(const cFloatImagePtr& image, uint32_t z, const std::string& owner) {
    return cFloatImagePtr(new cFloatImage(image->GetSlicePointer(z),
                                          cImageDimensions{image->GetSizeX(), image->GetSizeY(), 1},
                                          Contiguous3D, owner));
}

} // namespace

cSubvolumeInterpolationConstraint::cSubvolumeInterpolationConstraint(
    const cImageDimensions& offset, const cImageDimensions& size, const cImageDimensions& padded,
    const cImageDimensions& lowBand, const cImageDimensions& highBand)
    : cConstraint("cSubvolumeInterpolationConstraint"), mOffset(offset), mSize(size),
      mPadded(padded), mLowBand(lowBand), mHighBand(highBand) {}

void cSubvolumeInterpolationConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    // The input goes as soon as the result exists.
    image = InterpolateSubVolume(image);
}

cFloatImagePtr
cSubvolumeInterpolationConstraint::InterpolateSubVolume(const cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in InterpolateSubVolume", OVD_ERR_PARAMETER);
    const cImageDimensions& P = mPadded;
    const cImageDimensions& L = mLowBand;
    const cImageDimensions& H = mHighBand;
    const cImageDimensions source = image->GetDimensions();
    // The folds need each lateral band to fit within the padded size, and z needs at least
    // one interior slice.
    const bool valid = source.Voxels() > 0 && P.Voxels() > 0 && L.x <= P.x && H.x <= P.x &&
                       L.y <= P.y && H.y <= P.y && uint64_t{L.z} + H.z < P.z;
    if (!valid)
        Fail("Invalid Dimensions in InterpolateSubVolume", OVD_ERR_PARAMETER);

    return Guard([&] {
        const std::string& owner = GetObjectName();
        const cImageDimensions W{L.x + H.x, L.y + H.y, L.z + H.z};
        const uint32_t core = P.z - W.z;
        cFloatImagePtr result(new cFloatImage(P, owner));

        {
            // The work plane: the padded slice widened by both guard bands. Plane column x
            // stands at image column offset.x − W.x + x, so the padded slice, from plane
            // column H.x on, starts L.x columns below the interior; below it lie H.x columns
            // and above it L.x columns of data to fold in. Rows likewise.
            const uint32_t planeX = P.x + W.x;
            const uint32_t planeY = P.y + W.y;
            cFloatImagePtr plane(new cFloatImage(cImageDimensions{planeX, planeY, 1}, owner));
            const std::vector<float> rampX = Ramp(W.x);
            const std::vector<float> rampY = Ramp(W.y);
            cFloatImagePtr riseY, fallY, riseX, fallX;
            if (W.y > 0) {
                riseY = WeightBand(rampY, W.y, planeX, true, true, owner);
                fallY = WeightBand(rampY, W.y, planeX, true, false, owner);
            }
            if (W.x > 0) {
                riseX = WeightBand(rampX, W.x, planeY, false, true, owner);
                fallX = WeightBand(rampX, W.x, planeY, false, false, owner);
            }
            const cAxisRun runX = AxisRun(mOffset.x, W.x, planeX, source.x);
            const cAxisRun runY = AxisRun(mOffset.y, W.y, planeY, source.y);
            const cImageBox padded{H.x, H.y, 0, H.x + P.x - 1, H.y + P.y - 1, 0};

            cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
            for (uint32_t z = L.z; z < L.z + core; ++z) {
                const int64_t wanted = int64_t{mOffset.z} + z - L.z;
                const uint32_t zs =
                    static_cast<uint32_t>(std::clamp<int64_t>(wanted, 0, int64_t{source.z} - 1));

                // Fill: the image's own pixels, then its edge columns and rows repeated
                // out to the plane's faces.
                const cImageBox from{runX.source,
                                     runY.source,
                                     zs,
                                     runX.source + (runX.last - runX.first),
                                     runY.source + (runY.last - runY.first),
                                     zs};
                math->CopyRectangularRoi(image, plane, from,
                                         {runX.first, runY.first, 0, runX.last, runY.last, 0});
                const cImageBox firstColumn{runX.first, runY.first, 0, runX.first, runY.last, 0};
                const cImageBox lastColumn{runX.last, runY.first, 0, runX.last, runY.last, 0};
                for (uint32_t x = 0; x < runX.first; ++x)
                    math->CopyRectangularRoi(plane, plane, firstColumn,
                                             {x, runY.first, 0, x, runY.last, 0});
                for (uint32_t x = runX.last + 1; x < planeX; ++x)
                    math->CopyRectangularRoi(plane, plane, lastColumn,
                                             {x, runY.first, 0, x, runY.last, 0});
                for (uint32_t y = 0; y < runY.first; ++y)
                    math->CopyRectangularRoi(plane, plane, Rows(runY.first, 1, planeX),
                                             Rows(y, 1, planeX));
                for (uint32_t y = runY.last + 1; y < planeY; ++y)
                    math->CopyRectangularRoi(plane, plane, Rows(runY.last, 1, planeX),
                                             Rows(y, 1, planeX));

                // Fade: the first W lines rise from 0, the W lines from P on fall to 0.
                if (W.y > 0) {
                    math->MultiplyImageRoi(plane, riseY, plane, Rows(0, W.y, planeX), Whole(riseY),
                                           Rows(0, W.y, planeX));
                    math->MultiplyImageRoi(plane, fallY, plane, Rows(P.y, W.y, planeX),
                                           Whole(fallY), Rows(P.y, W.y, planeX));
                }
                if (W.x > 0) {
                    math->MultiplyImageRoi(plane, riseX, plane, Columns(0, W.x, planeY),
                                           Whole(riseX), Columns(0, W.x, planeY));
                    math->MultiplyImageRoi(plane, fallX, plane, Columns(P.x, W.x, planeY),
                                           Whole(fallX), Columns(P.x, W.x, planeY));
                }

                // Fold with period P: what lies beyond the padded slice's high face comes
                // back at its low face and the other way round. Each line lands exactly one
                // period away, also where the two bands differ in width, so the rising and
                // the falling weight that meet on a line are r[k] and r[W − 1 − k] and sum
                // to 1.
                if (L.y > 0)
                    math->AddImageRoi(plane, plane, plane, Rows(H.y + P.y, L.y, planeX),
                                      Rows(H.y, L.y, planeX), Rows(H.y, L.y, planeX));
                if (H.y > 0)
                    math->AddImageRoi(plane, plane, plane, Rows(0, H.y, planeX),
                                      Rows(P.y, H.y, planeX), Rows(P.y, H.y, planeX));
                if (L.x > 0)
                    math->AddImageRoi(plane, plane, plane, Columns(H.x + P.x, L.x, planeY),
                                      Columns(H.x, L.x, planeY), Columns(H.x, L.x, planeY));
                if (H.x > 0)
                    math->AddImageRoi(plane, plane, plane, Columns(0, H.x, planeY),
                                      Columns(P.x, H.x, planeY), Columns(P.x, H.x, planeY));

                math->CopyRectangularRoi(plane, result, padded, {0, 0, z, P.x - 1, P.y - 1, z});
            }
        }

        if (W.z == 0)
            return result;

        // The guard slices, blended from the first interior slice A and the last one E:
        // going up from E through the high band and round into the low band, the weight
        // moves from E to A along the ramp.
        const std::vector<float> rampZ = Ramp(W.z);
        cFloatImagePtr first = SliceView(result, L.z, owner);
        cFloatImagePtr last = SliceView(result, L.z + core - 1, owner);
        cFloatImagePtr part(new cFloatImage(cImageDimensions{P.x, P.y, 1}, owner));
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        auto blend = [&](uint32_t z, const cFloatImagePtr& a, float w, const cFloatImagePtr& b) {
            // slice z = w·a + (1 − w)·b
            cFloatImagePtr target = SliceView(result, z, owner);
            math->MultiplyImageByConstant(a, w, target);
            math->MultiplyImageByConstant(b, 1.0f - w, part);
            math->AddImage(target, part, target);
        };
        for (uint32_t i = 0; i < L.z; ++i) {
            // Without a high band the slice after E is the first of the low band; it takes
            // E's own weight, the ramp's first entry.
            const uint32_t k = H.z + i == 0 ? 0 : H.z + i - 1;
            blend(i, first, rampZ[k], last);
        }
        for (uint32_t i = 0; i < H.z; ++i)
            blend(L.z + core + i, last, rampZ[H.z - i + L.z - 1], first);
        return result;
    });
}

} // namespace Ovidane
