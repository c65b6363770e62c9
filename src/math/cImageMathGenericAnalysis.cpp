// The analysing operations of the plain image math: multipliers and penalties, searches,
// likelihoods and profiles of spectra, masks, logic and the origin shift.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "core/cException.h"
#include "math/ImageWalk.h"
#include "math/cImageMathGeneric.h"

namespace Ovidane {
namespace {

// The one small number of the image math: floors, and the least ratio a logarithm takes.
constexpr float kGuard = 1e-20f;

// Bins of the histogram of CalculateStatisticsByMask; values spread over the first 256.
constexpr std::size_t kHistogramBins = 512;

// Sums of an image split by a mask: inside where the mask isn't 0, outside where it is.
// All three are float sums, so the total need not equal inside + outside to the last bit.
struct cMaskedSums {
    float total = 0;
    float inside = 0;
    float outside = 0;
};

cMaskedSums SumByMask(const cFloatImagePtr& image, const cFloatImagePtr& mask) {
    const uint32_t sizeX = image->GetSizeX();
    return ImageWalk::ReduceLines(
        image->GetDimensions(), cMaskedSums{},
        [&](uint32_t y, uint32_t z, cMaskedSums& sums) {
            const float* p = image->GetLinePointer(y, z);
            const float* m = mask->GetLinePointer(y, z);
            for (uint32_t x = 0; x < sizeX; ++x) {
                sums.total += p[x];
                if (m[x] != 0)
                    sums.inside += p[x];
                else
                    sums.outside += p[x];
            }
        },
        [](cMaskedSums& total, const cMaskedSums& piece) {
            total.total += piece.total;
            total.inside += piece.inside;
            total.outside += piece.outside;
        });
}

// The largest pixel, starting from minus the largest float.
float LargestPixel(const cFloatImagePtr& image) {
    const uint32_t sizeX = image->GetSizeX();
    return ImageWalk::ReduceLines(
        image->GetDimensions(), -FLT_MAX,
        [&](uint32_t y, uint32_t z, float& largest) {
            const float* p = image->GetLinePointer(y, z);
            for (uint32_t x = 0; x < sizeX; ++x)
                if (p[x] > largest)
                    largest = p[x];
        },
        [](float& total, float piece) {
            if (piece > total)
                total = piece;
        });
}

// Scale factors of the multipliers: 1 / (a1 - a2 - a3) outside the mask, 1 / (a1 - a3)
// inside.
struct cMaskScales {
    float outside;
    float inside;
};

cMaskScales MultiplierScales(float a1, float a2, float a3) {
    return {1.0f / (a1 - a2 - a3), 1.0f / (a1 - a3)};
}

// Distance of an index from the origin in wrap-around order.
uint32_t WrappedDistance(uint32_t index, uint32_t size) {
    return index <= size / 2 ? index : size - index;
}

// Number of indices from `first` up to, not including, size - margin; 0 when the margins
// leave nothing.
uint32_t InnerExtent(uint32_t size, uint32_t first, uint32_t margin) {
    if (margin >= size || first >= size - margin)
        return 0;
    return size - margin - first;
}

// The low byte of a pixel rounded to the nearest integer (ties to even).
uint8_t LowByte(float p) {
    return static_cast<uint8_t>(static_cast<uint64_t>(std::llrint(p)) & 0xFFu);
}

} // namespace

// ---- Multipliers and penalties
//
// The multipliers split an image by a mask (inside where the mask isn't 0). Nothing in a
// restoration reaches them; they check their images all the same, so that a wrong call
// fails instead of reading past an image.

float cImageMathGeneric::LagrangeMultiplierCalculateVU(const cFloatImagePtr& image,
                                                       const cFloatImagePtr& mask) {
    return Guard([&] {
        RequireImages("LagrangeMultiplierCalculateVU", {&image, &mask});
        RequireSameSize("LagrangeMultiplierCalculateVU", image, mask);
        const cMaskedSums sums = SumByMask(image, mask);
        return 2 * sums.outside / sums.total;
    });
}

float cImageMathGeneric::LagrangeMultiplierCalculateA2(const cFloatImagePtr& image,
                                                       const cFloatImagePtr& mask, float a,
                                                       float b) {
    return Guard([&] {
        RequireImages("LagrangeMultiplierCalculateA2", {&image, &mask});
        RequireSameSize("LagrangeMultiplierCalculateA2", image, mask);
        const cMaskedSums sums = SumByMask(image, mask);
        const float reduced = sums.total - b;
        if (reduced == 0 || a == 0)
            return 1.0f;
        if (a <= sums.outside / reduced)
            return reduced - sums.outside / a;
        return 0.0f;
    });
}

float cImageMathGeneric::LagrangeMultiplierCalculateA3(const cFloatImagePtr& image,
                                                       const cFloatImagePtr& mask, float a1,
                                                       float a2, float a3) {
    return Guard([&] {
        RequireImages("LagrangeMultiplierCalculateA3", {&image, &mask});
        RequireSameSize("LagrangeMultiplierCalculateA3", image, mask);
        const cMaskedSums sums = SumByMask(image, mask);
        const cMaskScales s = MultiplierScales(a1, a2, a3);
        // One Newton step on the constraint so·O + si·I = 1.
        const float slope =
            s.inside * s.inside * sums.inside + s.outside * s.outside * sums.outside;
        if (slope == 0)
            return 0.0f;
        return a3 - (s.outside * sums.outside + s.inside * sums.inside - 1) / slope;
    });
}

void cImageMathGeneric::LagrangeMultiplierConstraintApply(const cFloatImagePtr& out,
                                                          const cFloatImagePtr& in,
                                                          const cFloatImagePtr& mask, float a1,
                                                          float a2, float a3, float fraction) {
    Guard([&] {
        RequireImages("LagrangeMultiplierConstraintApply", {&out, &in, &mask});
        RequireSameSize("LagrangeMultiplierConstraintApply", in, mask);
        RequireSameSize("LagrangeMultiplierConstraintApply", in, out);
        cMaskScales s{1.0f, 1.0f};
        if (a2 != 0) {
            s = MultiplierScales(a1, a2, a3);
            if (s.outside == 0 || s.inside == 0)
                s.inside = 1;
            // Multipliers that would turn the image negative give way to a fixed split: the
            // inside is kept and the outside scaled to `fraction` of the new total.
            if (s.outside < 0 || s.inside < 0) {
                const cMaskedSums sums = SumByMask(in, mask);
                s.inside = 1;
                s.outside = fraction * sums.inside / ((1 - fraction) * sums.outside);
            }
        }
        const uint32_t sizeX = in->GetSizeX();
        ImageWalk::ForEachLine(in->GetDimensions(), [&](uint32_t y, uint32_t z) {
            const float* p = in->GetLinePointer(y, z);
            const float* m = mask->GetLinePointer(y, z);
            float* o = out->GetLinePointer(y, z);
            for (uint32_t x = 0; x < sizeX; ++x)
                o[x] = p[x] * (m[x] != 0 ? s.inside : s.outside);
        });
    });
}

void cImageMathGeneric::GoodsRoughnessPenalty(const cFloatImagePtr& estimate,
                                              const cFloatImagePtr& reference,
                                              const cFloatImagePtr& /*work*/, const float& beta) {
    Guard([&] {
        // work serves only back ends that build the neighbour sums as images.
        RequireImages("GoodsRoughnessPenalty", {&estimate, &reference});
        RequireSameSize("GoodsRoughnessPenalty", estimate, reference);
        const cImageDimensions size = estimate->GetDimensions();
        if (size.x < 3 || size.y < 3)
            return; // no pixel lies off the border of its slice
        // The first and last slice (and the only slice of a plane) see their four in-plane
        // neighbours; the slices between see the two axial ones as well.
        const float inPlane = 4 * beta + 1;
        const float inVolume = 6 * beta + 1;
        const float b = beta;
        auto line = [&](uint32_t y, uint32_t z) {
            if (y == 0 || y + 1 == size.y)
                return;
            float* e = estimate->GetLinePointer(y, z);
            const float* r = reference->GetLinePointer(y, z);
            const float* above = reference->GetLinePointer(y - 1, z);
            const float* below = reference->GetLinePointer(y + 1, z);
            if (z == 0 || z + 1 == size.z) {
                for (uint32_t x = 1; x + 1 < size.x; ++x) {
                    const float s4 = r[x - 1] + r[x + 1] + above[x] + below[x];
                    const float updated = (b * r[x] * s4 + e[x]) / inPlane;
                    e[x] = updated <= kGuard ? kGuard : updated;
                }
                return;
            }
            const float* next = reference->GetLinePointer(y, z + 1);
            const float* previous = reference->GetLinePointer(y, z - 1);
            for (uint32_t x = 1; x + 1 < size.x; ++x) {
                const float s6 = r[x - 1] + r[x + 1] + above[x] + below[x] + next[x] + previous[x];
                const float updated = (b * r[x] * s6 + e[x]) / inVolume;
                e[x] = updated <= kGuard ? kGuard : updated;
            }
        };
        if (estimate.Get() == reference.Get()) {
            // Penalising against itself, a pixel sees the already updated neighbours before
            // it, so the order is the one of a plain walk: z, then y, then x.
            for (uint32_t z = 0; z < size.z; ++z)
                for (uint32_t y = 0; y < size.y; ++y)
                    line(y, z);
        } else {
            ImageWalk::ForEachLine(size, line);
        }
    });
}

// ---- Reductions and searches

float cImageMathGeneric::EstimateForegroundThreshold(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("EstimateForegroundThreshold", {&image});
        // A quarter of the peak lies above a dim background and below the bright object.
        return 0.25f * LargestPixel(image);
    });
}

void cImageMathGeneric::FindMaxMinPositionOfMaximumValue(const cFloatImagePtr& image,
                                                         cImagePosition& upper,
                                                         cImagePosition& lower) {
    Guard([&] {
        RequireImages("FindMaxMinPositionOfMaximumValue", {&image});
        const float largest = LargestPixel(image);
        struct cCorners {
            bool found = false;
            cImagePosition lower;
            cImagePosition upper;
            void Add(const cImagePosition& low, const cImagePosition& high) {
                if (!found) {
                    found = true;
                    lower = low;
                    upper = high;
                    return;
                }
                lower = {std::min(lower.x, low.x), std::min(lower.y, low.y),
                         std::min(lower.z, low.z)};
                upper = {std::max(upper.x, high.x), std::max(upper.y, high.y),
                         std::max(upper.z, high.z)};
            }
        };
        const uint32_t sizeX = image->GetSizeX();
        const cCorners corners = ImageWalk::ReduceLines(
            image->GetDimensions(), cCorners{},
            [&](uint32_t y, uint32_t z, cCorners& part) {
                const float* p = image->GetLinePointer(y, z);
                uint32_t first = sizeX;
                uint32_t last = 0;
                for (uint32_t x = 0; x < sizeX; ++x)
                    if (p[x] == largest) {
                        first = std::min(first, x);
                        last = x;
                    }
                if (first < sizeX)
                    part.Add({first, y, z}, {last, y, z});
            },
            [](cCorners& total, const cCorners& part) {
                if (part.found)
                    total.Add(part.lower, part.upper);
            });
        // Only an image without a comparable pixel (all NaN) finds nothing; the positions
        // then stay as they were.
        if (corners.found) {
            upper = corners.upper;
            lower = corners.lower;
        }
    });
}

float cImageMathGeneric::ComputeLogLikelihoodIncreaseByLineSearch(
    const cFloatImagePtr& data, const cFloatImagePtr& blurred, const cFloatImagePtr& direction,
    const cFloatImagePtr& work, const float& step, unsigned x0, unsigned xMargin, unsigned y0,
    unsigned yMargin, unsigned z0, unsigned zMargin) {
    return Guard([&] {
        // work isn't read here, but every back end takes the same arguments.
        RequireLineSearchImages(data, blurred, direction, work);
        const cImageDimensions& size = data->GetDimensions();

        // Only the pixels inside the guard bands count.
        const cImageDimensions region{InnerExtent(size.x, x0, xMargin),
                                      InnerExtent(size.y, y0, yMargin),
                                      InnerExtent(size.z, z0, zMargin)};
        const float t = step;
        return ImageWalk::ReduceLines(
            region, 0.0f,
            [&](uint32_t y, uint32_t z, float& sum) {
                const float* g = data->GetLinePointer(y0 + y, z0 + z) + x0;
                const float* f = blurred->GetLinePointer(y0 + y, z0 + z) + x0;
                const float* c = direction->GetLinePointer(y0 + y, z0 + z) + x0;
                for (uint32_t x = 0; x < region.x; ++x) {
                    // The Poisson log-likelihood changes by g·ln(f'/f) - (f' - f) when the
                    // reblurred image f moves to f' = f + t·c; a ratio that isn't positive
                    // has no logarithm and the pixel is left out.
                    const float d = c[x] * t;
                    const float ratio = (d + f[x]) / f[x];
                    if (ratio > kGuard)
                        sum += g[x] * std::log(ratio) - d;
                }
            },
            [](float& total, float piece) { total += piece; });
    });
}

void cImageMathGeneric::CalculateRadialProfile(const cFloatImagePtr& re, const cFloatImagePtr& im,
                                               cCountedArray<float> profile) {
    Guard([&] {
        const char* name = "CalculateRadialProfile";
        RequireImages(name, {&re, &im});
        RequireSameSize(name, re, im);
        const cImageDimensions& size = re->GetDimensions();
        // Rings are one frequency step of the shorter side wide; x and y are scaled
        // separately, so a rectangle is treated as a square. B = trunc(1.41·m) / 2 rings
        // reach about to the corner of that square (√2/2·m), and the caller's array holds
        // B + 1 entries, the last one always 0.
        const uint32_t shorter = std::min(size.x, size.y);
        const std::size_t bins = static_cast<std::size_t>(1.41 * shorter) / 2;
        if (profile.IsNull() || profile->size() < bins + 1)
            Fail(std::string("Invalid Dimensions in ") + name, OVD_ERR_PARAMETER);

        std::vector<float> squaredX(size.x);
        for (uint32_t x = 0; x < size.x; ++x) {
            const float f = static_cast<float>(WrappedDistance(x, size.x)) / size.x;
            squaredX[x] = f * f;
        }
        struct cRings {
            std::vector<float> power;
            std::vector<uint64_t> count;
        };
        const cRings empty{std::vector<float>(bins + 1, 0.0f), std::vector<uint64_t>(bins + 1, 0)};
        const float scale = static_cast<float>(shorter);
        const cRings rings = ImageWalk::ReduceLines(
            size, empty,
            [&](uint32_t y, uint32_t z, cRings& part) {
                const float* r = re->GetLinePointer(y, z);
                const float* i = im->GetLinePointer(y, z);
                const float fy = static_cast<float>(WrappedDistance(y, size.y)) / size.y;
                const float squaredY = fy * fy;
                for (uint32_t x = 0; x < size.x; ++x) {
                    const auto bin =
                        static_cast<std::size_t>(scale * std::sqrt(squaredX[x] + squaredY));
                    if (bin < bins) {
                        part.power[bin] += r[x] * r[x] + i[x] * i[x];
                        ++part.count[bin];
                    }
                }
            },
            [](cRings& total, const cRings& part) {
                for (std::size_t b = 0; b < total.power.size(); ++b) {
                    total.power[b] += part.power[b];
                    total.count[b] += part.count[b];
                }
            });
        std::vector<float>& out = *profile;
        for (std::size_t b = 0; b < bins; ++b)
            out[b] = rings.count[b] != 0 ? rings.power[b] / static_cast<float>(rings.count[b]) : 0;
        out[bins] = 0;
    });
}

// ---- Shape generators

void cImageMathGeneric::GeneratePowerSpectrumMask(const cFloatImagePtr& re,
                                                  const cFloatImagePtr& im, int /*unused*/,
                                                  float fraction) {
    Guard([&] {
        RequireImages("GeneratePowerSpectrumMask", {&re, &im});
        RequireSameSize("GeneratePowerSpectrumMask", re, im);
        const cImageDimensions& size = re->GetDimensions();
        if (size.Voxels() == 0)
            return;
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            float* r = re->GetLinePointer(y, z);
            const float* i = im->GetLinePointer(y, z);
            for (uint32_t x = 0; x < size.x; ++x)
                r[x] = r[x] * r[x] + i[x] * i[x];
        });
        // The strong part is measured against the power at zero frequency.
        const float level = fraction * *re->GetPixelPointer(0, 0, 0);
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            float* r = re->GetLinePointer(y, z);
            for (uint32_t x = 0; x < size.x; ++x)
                r[x] = r[x] >= level ? 1.0f : 0.0f;
        });
    });
}

void cImageMathGeneric::ReservedHandleOperation(const cFloatImagePtr& /*image*/, void* /*handle*/) {
    // A slot kept free in the order of the operations; it has no work to do.
    Guard([] {});
}

// ---- Filling and copying

void cImageMathGeneric::FFTShift(const cFloatImagePtr& in, const cFloatImagePtr& work,
                                 const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("FFTShift", {&in, &work, &out});
        RequireSameSize("FFTShift", in, work);
        RequireSameSize("FFTShift", in, out);
        // out(x, y, z) = in((x + X/2) mod X, (y + Y/2) mod Y, (z + Z/2) mod Z). For even
        // sizes this swaps the halves of each axis and is its own inverse: the frequency
        // origin goes to the centre and back. For an odd size it brings the centre
        // pixel N/2 of a centred stack to the origin; the way back would be a shift by
        // (N + 1)/2, so two shifts of an odd size are one pixel off.
        const cImageDimensions& size = in->GetDimensions();
        const uint32_t half = size.x / 2;
        const cFloatImagePtr* source = &in;
        if (in.Get() == out.Get()) {
            // Shifting in place: gather from a copy in work.
            ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
                const float* from = in->GetLinePointer(y, z);
                std::copy(from, from + size.x, work->GetLinePointer(y, z));
            });
            source = &work;
        }
        const cFloatImagePtr& from = *source;
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            const float* line =
                from->GetLinePointer((y + size.y / 2) % size.y, (z + size.z / 2) % size.z);
            float* target = out->GetLinePointer(y, z);
            std::copy(line + half, line + size.x, target);
            std::copy(line, line + half, target + (size.x - half));
        });
    });
}

// ---- Spectra, masks and logic

void cImageMathGeneric::WienerFilteringImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm,
                                             const cFloatImagePtr& hRe, const cFloatImagePtr& hIm,
                                             float k, const cFloatImagePtr& outRe,
                                             const cFloatImagePtr& outIm) {
    Guard([&] {
        // A missing image or a k that leaves the quotient unguarded is reported as a line,
        // not raised, and the outputs stay as they were.
        for (const cFloatImagePtr* image : {&aRe, &aIm, &hRe, &hIm, &outRe, &outIm})
            if (image->IsNull()) {
                SecondStream() << "Generic Math Error" << std::endl;
                return;
            }
        for (const cFloatImagePtr* image : {&aIm, &hRe, &hIm, &outRe, &outIm})
            RequireSameSize("WienerFilteringImage", aRe, *image);
        if (!(k > 0)) {
            SecondStream() << "Generic Math Error" << std::endl;
            return;
        }
        // out = a · conj(h) / (|h|² + k)
        const uint32_t sizeX = aRe->GetSizeX();
        ImageWalk::ForEachLine(aRe->GetDimensions(), [&](uint32_t y, uint32_t z) {
            const float* ar = aRe->GetLinePointer(y, z);
            const float* ai = aIm->GetLinePointer(y, z);
            const float* hr = hRe->GetLinePointer(y, z);
            const float* hi = hIm->GetLinePointer(y, z);
            float* outR = outRe->GetLinePointer(y, z);
            float* outI = outIm->GetLinePointer(y, z);
            for (uint32_t x = 0; x < sizeX; ++x) {
                const float denominator = hr[x] * hr[x] + hi[x] * hi[x] + k;
                const float u = hr[x] / denominator;
                const float v = hi[x] / denominator;
                const float real = ar[x];
                const float imaginary = ai[x];
                outR[x] = u * real + v * imaginary;
                outI[x] = u * imaginary - v * real;
            }
        });
    });
}

int cImageMathGeneric::CalculateStatisticsByMask(const cFloatImagePtr& image,
                                                 const cFloatImagePtr& mask, float dx, float dy,
                                                 cCountedArray<float> histogram,
                                                 cImageMathStatistics* statistics) {
    return Guard([&] {
        const char* name = "CalculateStatisticsByMask";
        RequireImages(name, {&image, &mask});
        if (histogram.IsNull() || statistics == nullptr)
            Fail(std::string("NULL input image in ") + name, OVD_ERR_PARAMETER);
        RequireSameSize(name, image, mask);
        const cImageDimensions& size = image->GetDimensions();

        // The pixels taken are those whose mask is exactly 1.
        float minimum = FLT_MAX;
        float maximum = -FLT_MAX;
        for (uint32_t z = 0; z < size.z; ++z)
            for (uint32_t y = 0; y < size.y; ++y) {
                const float* p = image->GetLinePointer(y, z);
                const float* m = mask->GetLinePointer(y, z);
                for (uint32_t x = 0; x < size.x; ++x)
                    if (m[x] == 1.0f) {
                        minimum = std::min(minimum, p[x]);
                        maximum = std::max(maximum, p[x]);
                    }
            }
        // Without a spread of values (no pixel, or all equal) the histogram is anchored at
        // the image's first pixel with a unit range.
        float range = maximum - minimum;
        if (!(maximum > minimum)) {
            minimum = maximum = size.Voxels() != 0 ? *image->GetPixelPointer(0, 0, 0) : 0.0f;
            range = 1;
        }

        std::vector<float>& bins = *histogram;
        bins.assign(kHistogramBins, 0.0f);
        double sum = 0;
        float sumOfSquares = 0;
        uint32_t count = 0;
        for (uint32_t z = 0; z < size.z; ++z)
            for (uint32_t y = 0; y < size.y; ++y) {
                const float* p = image->GetLinePointer(y, z);
                const float* m = mask->GetLinePointer(y, z);
                for (uint32_t x = 0; x < size.x; ++x) {
                    if (m[x] != 1.0f)
                        continue;
                    const float position = (p[x] - minimum) * 255 / range + 0.5f;
                    // Values below the anchor (possible only without a spread) go to bin 0.
                    const std::size_t bin =
                        position <= 0
                            ? 0
                            : std::min(static_cast<std::size_t>(position), kHistogramBins - 1);
                    bins[bin] += 1;
                    sum += p[x];
                    sumOfSquares += p[x] * p[x];
                    ++count;
                }
            }

        cImageMathStatistics result;
        result.minimum = minimum;
        result.maximum = maximum;
        result.sum = sum;
        result.pixelCount = count;
        result.area = static_cast<float>(count) * dx * dy / static_cast<float>(size.z);
        if (count != 0) {
            result.mean = static_cast<float>(sum / count);
            result.variance = static_cast<double>(sumOfSquares) / count -
                              static_cast<double>(result.mean) * result.mean;
            // A flat region can come out a hair below zero through rounding.
            result.standardDeviation =
                static_cast<float>(std::sqrt(std::max(result.variance, 0.0)));
        }
        *statistics = result;
        return 0;
    });
}

int cImageMathGeneric::FloodFillImage(const cFloatImagePtr& /*image*/, int /*unused*/,
                                      int /*seedX*/, int /*seedY*/, float /*value*/) {
    // Filling a region is the work of the vector back end, which brings its own fill; the
    // plain back end leaves the image as it is.
    return Guard([] { return 0; });
}

namespace {

// out = byte(a) op byte(b), pixel by pixel.
template <class Combine>
void CombineBytes(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
                  Combine combine) {
    const uint32_t sizeX = a->GetSizeX();
    ImageWalk::ForEachLine(a->GetDimensions(), [&](uint32_t y, uint32_t z) {
        const float* pa = a->GetLinePointer(y, z);
        const float* pb = b->GetLinePointer(y, z);
        float* o = out->GetLinePointer(y, z);
        for (uint32_t x = 0; x < sizeX; ++x)
            o[x] = static_cast<float>(combine(LowByte(pa[x]), LowByte(pb[x])));
    });
}

} // namespace

void cImageMathGeneric::LogicalANDImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                        const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("LogicalANDImage", {&a, &b, &out});
        RequireSameSize("LogicalANDImage", a, b);
        RequireSameSize("LogicalANDImage", a, out);
        CombineBytes(a, b, out, [](uint8_t p, uint8_t q) { return p & q; });
    });
}

void cImageMathGeneric::LogicalORImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                       const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("LogicalORImage", {&a, &b, &out});
        RequireSameSize("LogicalORImage", a, b);
        RequireSameSize("LogicalORImage", a, out);
        CombineBytes(a, b, out, [](uint8_t p, uint8_t q) { return p | q; });
    });
}

void cImageMathGeneric::LogicalXORImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                        const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("LogicalXORImage", {&a, &b, &out});
        RequireSameSize("LogicalXORImage", a, b);
        RequireSameSize("LogicalXORImage", a, out);
        CombineBytes(a, b, out, [](uint8_t p, uint8_t q) { return p ^ q; });
    });
}

void cImageMathGeneric::TransposeImage(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("TransposeImage", {&in, &out});
        // out(y, x, z) = in(x, y, z): out has in's x and y sizes swapped.
        const cImageDimensions& size = in->GetDimensions();
        const cImageDimensions& outSize = out->GetDimensions();
        if (outSize.x != size.y || outSize.y != size.x || outSize.z != size.z)
            Fail("Invalid Dimensions in TransposeImage", OVD_ERR_PARAMETER);
        // A slice lies in one piece in either layout.
        if (in.Get() == out.Get()) {
            // Square slices transpose in place, each pair swapped once.
            ImageWalk::ForEachSlice(size, [&](uint32_t z) {
                float* slice = in->GetSlicePointer(z);
                for (uint32_t y = 0; y < size.y; ++y)
                    for (uint32_t x = y + 1; x < size.x; ++x)
                        std::swap(slice[std::size_t{y} * size.x + x],
                                  slice[std::size_t{x} * size.x + y]);
            });
            return;
        }
        ImageWalk::ForEachSlice(size, [&](uint32_t z) {
            const float* from = in->GetSlicePointer(z);
            float* to = out->GetSlicePointer(z);
            for (uint32_t y = 0; y < size.x; ++y) // lines of out are columns of in
                for (uint32_t x = 0; x < size.y; ++x)
                    to[std::size_t{y} * size.y + x] = from[std::size_t{x} * size.x + y];
        });
    });
}

} // namespace Ovidane
