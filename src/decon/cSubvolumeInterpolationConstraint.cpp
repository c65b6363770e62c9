#include "decon/cSubvolumeInterpolationConstraint.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"
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

// The work plane of one slice: the padded slice widened by both guard bands, filled from an
// image slice and its edges, faded towards its faces and folded with period P. The steps, in
// their order, are pixel operations of plain float products and sums, so the padding is the
// same float for float on any thread and back end.
struct cSlicePadding {
    cImageDimensions P, L, H, W;
    cAxisRun runX, runY;
    std::vector<float> rampX, rampY;
    uint32_t planeX, planeY;
    const std::vector<cPixelCorrectionPtr>* corrections = nullptr;
    // Where the window's lines come from when not from the image.
    const cWindowLines* lines = nullptr;

    // Fills slice z of `result` from slice zs of `image`, working in `plane`.
    void operator()(const cFloatImage& image, uint32_t zs, cFloatImage& result, uint32_t z,
                    float* plane) const {
        const auto row = [&](uint32_t y) { return plane + std::size_t{y} * planeX; };
        // Fill: the image's own pixels, corrected, then its edge columns and rows repeated out
        // to the plane's faces.
        const uint32_t run = runX.last - runX.first + 1;
        for (uint32_t y = runY.first; y <= runY.last; ++y) {
            const uint32_t ys = runY.source + (y - runY.first);
            float* line = row(y);
            if (lines) {
                lines->Line(runX.source, ys, zs, run, line + runX.first);
            } else {
                const float* from = image.GetLinePointer(ys, zs);
                std::copy(from + runX.source, from + runX.source + run, line + runX.first);
            }
            for (const cPixelCorrectionPtr& correction : *corrections)
                correction->CorrectLine(line + runX.first, run, zs);
            std::fill(line, line + runX.first, line[runX.first]);
            std::fill(line + runX.last + 1, line + planeX, line[runX.last]);
        }
        for (uint32_t y = 0; y < runY.first; ++y)
            std::copy(row(runY.first), row(runY.first) + planeX, row(y));
        for (uint32_t y = runY.last + 1; y < planeY; ++y)
            std::copy(row(runY.last), row(runY.last) + planeX, row(y));

        // Fade: the first W lines rise from 0, the W lines from P on fall to 0.
        const auto scaleRow = [&](uint32_t y, float weight) {
            for (float* v = row(y); v != row(y) + planeX; ++v)
                *v *= weight;
        };
        for (uint32_t k = 0; k < W.y; ++k)
            scaleRow(k, rampY[k]);
        for (uint32_t k = 0; k < W.y; ++k)
            scaleRow(P.y + k, rampY[W.y - 1 - k]);
        for (uint32_t y = 0; y < planeY && W.x > 0; ++y) {
            float* line = row(y);
            for (uint32_t k = 0; k < W.x; ++k)
                line[k] *= rampX[k];
            for (uint32_t k = 0; k < W.x; ++k)
                line[P.x + k] *= rampX[W.x - 1 - k];
        }

        // Fold with period P: what lies beyond the padded slice's high face comes back at its
        // low face and the other way round. Each line lands exactly one period away, also
        // where the two bands differ in width, so the rising and the falling weight that
        // meet on a line are r[k] and r[W − 1 − k] and sum to 1.
        const auto addRow = [&](uint32_t from, uint32_t to) {
            for (uint32_t x = 0; x < planeX; ++x)
                row(to)[x] = row(from)[x] + row(to)[x];
        };
        for (uint32_t k = 0; k < L.y; ++k)
            addRow(H.y + P.y + k, H.y + k);
        for (uint32_t k = 0; k < H.y; ++k)
            addRow(k, P.y + k);
        for (uint32_t y = 0; y < planeY; ++y) {
            float* line = row(y);
            for (uint32_t k = 0; k < L.x; ++k)
                line[H.x + k] = line[H.x + P.x + k] + line[H.x + k];
            for (uint32_t k = 0; k < H.x; ++k)
                line[P.x + k] = line[k] + line[P.x + k];
        }

        for (uint32_t y = 0; y < P.y; ++y)
            std::copy(row(H.y + y) + H.x, row(H.y + y) + H.x + P.x, result.GetLinePointer(y, z));
    }
};

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
    const cImageDimensions source = mLines ? mLines->Size() : image->GetDimensions();
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
            cSlicePadding padding{P, L, H, W, {}, {}, Ramp(W.x), Ramp(W.y), P.x + W.x, P.y + W.y};
            padding.corrections = &mCorrections;
            padding.lines = mLines.get();
            // A correction that can't take one of the slices fails here, on the calling thread,
            // before any worker meets it.
            for (const cPixelCorrectionPtr& correction : mCorrections)
                for (uint32_t zs = 0; zs < source.z; ++zs) {
                    float probe = 0.0f;
                    correction->CorrectLine(&probe, 1, zs);
                }
            padding.runX = AxisRun(mOffset.x, W.x, padding.planeX, source.x);
            padding.runY = AxisRun(mOffset.y, W.y, padding.planeY, source.y);
            // The slices are independent: one parallel pass, each thread in its own plane.
            const int threads = ImageWalk::ThreadsFor(P.Voxels());
            std::vector<std::vector<float>> planes(
                std::size_t(threads), std::vector<float>(std::size_t{padding.planeX} * padding.planeY));
            cWorkerPool::ForEach(int64_t{core}, threads, [&](int64_t i, int worker) {
                const uint32_t z = L.z + static_cast<uint32_t>(i);
                const int64_t wanted = int64_t{mOffset.z} + z - L.z;
                const uint32_t zs =
                    static_cast<uint32_t>(std::clamp<int64_t>(wanted, 0, int64_t{source.z} - 1));
                padding(*image, zs, *result, z, planes[std::size_t(worker)].data());
            });
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
