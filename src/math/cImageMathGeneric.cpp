#include "math/cImageMathGeneric.h"
#include "math/cLimitCells.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/cException.h"
#include "core/cWorkerPool.h"
#include "math/FastLogExp.h"
#include "math/ImageWalk.h"
#include "math/PassKernels.h"

namespace Ovidane {

// Walking machinery of the plain back end. Every element-wise operation is one call of
// Walk (or Reduce for the sums and searches) with a line kernel: the walk fetches one line
// pointer per image and line and hands the kernel the line's length and those pointers.
// A view names the image and the first pixel of the part that is walked, so the same
// kernels serve whole images, single slices and boxes.
namespace {

// The system's one small number: floors, divisors and logarithms use it.
constexpr float kGuard = 1e-20f;
// The largest float, the start of every search for a minimum.
constexpr float kLargest = 3.4028235e38f;

template <class T> struct cView {
    const cOvdImage<T>* image;
    uint32_t x0 = 0, y0 = 0, z0 = 0;

    // Line j, k of the walked part: a pointer fetched once per line.
    T* Line(uint32_t j, uint32_t k) const { return image->GetLinePointer(y0 + j, z0 + k) + x0; }
};

template <class T> cView<T> Whole(const cCountedPtr<cOvdImage<T>>& image) {
    return {image.Get()};
}
template <class T> cView<T> Slice(const cCountedPtr<cOvdImage<T>>& image, uint32_t z) {
    return {image.Get(), 0, 0, z};
}
// `box` must be sorted.
template <class T> cView<T> At(const cCountedPtr<cOvdImage<T>>& image, const cImageBox& box) {
    return {image.Get(), box.x0, box.y0, box.z0};
}

cImageDimensions SliceExtent(const cImageDimensions& size) {
    return {size.x, size.y, 1};
}
// Pixels per axis of a sorted box, both corners included.
cImageDimensions BoxExtent(const cImageBox& box) {
    return {box.x1 - box.x0 + 1, box.y1 - box.y0 + 1, box.z1 - box.z0 + 1};
}

// Calls kernel(n, line pointers of the views...) for every line of `extent`, lines spread
// over the worker threads. A kernel writes only its own line, so the result does not depend
// on the thread count.
template <class Kernel, class... Views>
void Walk(const cImageDimensions& extent, Kernel&& kernel, const Views&... views) {
    if (extent.x == 0)
        return;
    ImageWalk::ForEachLine(extent,
                           [&](uint32_t j, uint32_t k) { kernel(extent.x, views.Line(j, k)...); });
}

// A kernel that stores op(input pixels...) into its first line. Each pixel of the inputs
// is read before the same pixel of the output is written, so the output may be one of the
// inputs (never a shifted part of one).
template <class Op> auto PerPixel(Op op) {
    return [op](uint32_t n, auto* out, const auto*... in) {
#pragma omp simd
        for (uint32_t x = 0; x < n; ++x)
            out[x] = op(in[x]...);
    };
}

// Deterministic reduction: kernel(n, partial, line pointers...) adds one line into a
// piece's partial value; the pieces of ImageWalk's fixed partition are joined by `join`
// in partition order.
template <class Value, class Kernel, class Join, class... Views>
Value Reduce(const cImageDimensions& extent, Value zero, Kernel&& kernel, Join&& join,
             const Views&... views) {
    return ImageWalk::ReduceLines(
        extent, zero,
        [&](uint32_t j, uint32_t k, Value& partial) {
            kernel(extent.x, partial, views.Line(j, k)...);
        },
        join);
}

// Sum of f(p) over a view, each line summed on its own and the lines added in double.
template <class F> double SumDouble(const cImageDimensions& extent, const cView<float>& view, F f) {
    return Reduce(
        extent, 0.0,
        [f](uint32_t n, double& partial, const float* p) {
            double line = 0.0;
#pragma omp simd reduction(+ : line)
            for (uint32_t x = 0; x < n; ++x)
                line += static_cast<double>(f(p[x]));
            partial += line;
        },
        [](double& total, double piece) { total += piece; }, view);
}

// The same with a float accumulator throughout.
template <class F, class... Views>
float SumFloat(const cImageDimensions& extent, F f, const Views&... views) {
    return Reduce(
        extent, 0.0f,
        [f](uint32_t n, float& partial, const auto*... p) {
            float line = 0.0f;
#pragma omp simd reduction(+ : line)
            for (uint32_t x = 0; x < n; ++x)
                line += f(p[x]...);
            partial += line;
        },
        [](float& total, float piece) { total += piece; }, views...);
}

float MinimumOf(const cFloatImagePtr& image) {
    return Reduce(
        image->GetDimensions(), kLargest,
        [](uint32_t n, float& partial, const float* p) {
            float m = partial;
#pragma omp simd reduction(min : m)
            for (uint32_t x = 0; x < n; ++x)
                m = p[x] < m ? p[x] : m;
            partial = m;
        },
        [](float& total, float piece) { total = piece < total ? piece : total; }, Whole(image));
}

float MaximumOf(const cFloatImagePtr& image) {
    return Reduce(
        image->GetDimensions(), -kLargest,
        [](uint32_t n, float& partial, const float* p) {
            float m = partial;
#pragma omp simd reduction(max : m)
            for (uint32_t x = 0; x < n; ++x)
                m = p[x] > m ? p[x] : m;
            partial = m;
        },
        [](float& total, float piece) { total = piece > total ? piece : total; }, Whole(image));
}

// Pixels with low <= p < high.
uint32_t CountInRange(const cFloatImagePtr& image, float low, float high) {
    const uint64_t count = Reduce(
        image->GetDimensions(), uint64_t{0},
        [low, high](uint32_t n, uint64_t& partial, const float* p) {
            uint32_t line = 0;
#pragma omp simd reduction(+ : line)
            for (uint32_t x = 0; x < n; ++x)
                line += (p[x] >= low && p[x] < high) ? 1u : 0u;
            partial += line;
        },
        [](uint64_t& total, uint64_t piece) { total += piece; }, Whole(image));
    return static_cast<uint32_t>(count);
}

double SliceSum(const cFloatImagePtr& image, uint32_t z) {
    return SumDouble(SliceExtent(image->GetDimensions()), Slice(image, z),
                     [](float p) { return p; });
}

void Fill(const cImageDimensions& extent, const cView<float>& view, float value) {
    Walk(
        extent, [value](uint32_t n, float* p) { std::fill_n(p, n, value); }, view);
}

// Equal sizes: one copy per slice, slices side by side in memory when both images hold
// the whole stack in one block, else line by line.
void CopyEqual(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    if (in.Get() == out.Get())
        return;
    const cImageDimensions size = in->GetDimensions();
    if (in->GetLayout() == out->GetLayout()) {
        const std::size_t slice = std::size_t{size.x} * size.y;
        ImageWalk::ForEachSlice(size, [&](uint32_t z) {
            std::memcpy(out->GetSlicePointer(z), in->GetSlicePointer(z), slice * sizeof(float));
        });
        return;
    }
    Walk(
        size, [](uint32_t n, float* o, const float* p) { std::memcpy(o, p, n * sizeof(float)); },
        Whole(out), Whole(in));
}

// Copies the lines of `extent` from in to out: a wider out gets a zeroed tail on each
// line, a narrower one takes its own width from in.
void CopyLines(const cImageDimensions& extent, const cView<float>& in, const cView<float>& out,
               uint32_t inWidth, uint32_t outWidth) {
    const uint32_t common = std::min(inWidth, outWidth);
    ImageWalk::ForEachLine(extent, [&](uint32_t j, uint32_t k) {
        float* o = out.Line(j, k);
        std::memcpy(o, in.Line(j, k), common * sizeof(float));
        std::fill(o + common, o + outWidth, 0.0f);
    });
}

// Spreads `count` independent work items over the worker threads, as many threads as
// ImageWalk grants to `pixels` pixels of work.
template <class Body> void ForEachIndex(uint32_t count, uint64_t pixels, Body&& body) {
    cWorkerPool::ForEach(int64_t{count}, ImageWalk::ThreadsFor(pixels),
                         [&](int64_t i, int) { body(static_cast<uint32_t>(i)); });
}

// Folds `in` into slice 0 of `out`, which holds the start values: axis 1 folds z (slices
// firstZ to lastZ) into out(x, y), axis 2 folds y into out(x, z), axis 3 folds x into
// out(z, y). Every target pixel takes its inputs in ascending order of the folded
// coordinate, so even a float sum is independent of the thread count.
template <class Combine>
void Fold(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis, uint32_t firstZ,
          uint32_t lastZ, Combine combine) {
    const cImageDimensions s = in->GetDimensions();
    if (s.x == 0 || s.y == 0 || s.z == 0)
        return;
    const auto fold = [combine](uint32_t n, float* target, const float* p) {
#pragma omp simd
        for (uint32_t x = 0; x < n; ++x)
            target[x] = combine(target[x], p[x]);
    };
    if (axis == 1) {
        ForEachIndex(s.y, s.Voxels(), [&](uint32_t y) {
            float* target = out->GetLinePointer(y, 0);
            for (uint32_t z = firstZ; z <= lastZ; ++z)
                fold(s.x, target, in->GetLinePointer(y, z));
        });
    } else if (axis == 2) {
        ForEachIndex(s.z, s.Voxels(), [&](uint32_t z) {
            float* target = out->GetLinePointer(z, 0);
            for (uint32_t y = 0; y < s.y; ++y)
                fold(s.x, target, in->GetLinePointer(y, z));
        });
    } else if (axis == 3) {
        ImageWalk::ForEachLine(s, [&](uint32_t y, uint32_t z) {
            const float* p = in->GetLinePointer(y, z);
            float& target = out->GetLinePointer(y, 0)[z];
            float v = target;
            for (uint32_t x = 0; x < s.x; ++x)
                v = combine(v, p[x]);
            target = v;
        });
    }
}

// Does out fit the fold of `in` along `axis` (x and y of out against the kept axes)?
bool FitsFold(const cImageDimensions& in, const cImageDimensions& out, int axis) {
    switch (axis) {
    case 1:
        return out.x == in.x && out.y == in.y;
    case 2:
        return out.x == in.x && out.y == in.z;
    case 3:
        return out.x == in.z && out.y == in.y;
    default:
        return true;
    }
}

constexpr auto kMax = [](float t, float p) { return p > t ? p : t; };
constexpr auto kMin = [](float t, float p) { return p < t ? p : t; };
constexpr auto kSum = [](float t, float p) { return t + p; };

template <bool kConjugate>
inline void ComplexProduct(float ar, float ai, float br, float bi, float scale, float& re,
                           float& im) {
    if constexpr (kConjugate) {
        re = (br * ar + bi * ai) * scale;
        im = (br * ai - bi * ar) * scale;
    } else {
        re = (br * ar - bi * ai) * scale;
        im = (bi * ar + br * ai) * scale;
    }
}

template <bool kConjugate> auto InterleavedProduct(float scale) {
    return [scale](uint32_t n, float* o, const float* a, const float* b) {
        const uint32_t pairs = n / 2;
#pragma omp simd
        for (uint32_t i = 0; i < pairs; ++i) {
            const float ar = a[2 * i], ai = a[2 * i + 1], br = b[2 * i], bi = b[2 * i + 1];
            ComplexProduct<kConjugate>(ar, ai, br, bi, scale, o[2 * i], o[2 * i + 1]);
        }
    };
}

template <bool kConjugate> auto SplitProduct(float scale) {
    return [scale](uint32_t n, float* oRe, float* oIm, const float* aRe, const float* aIm,
                   const float* bRe, const float* bIm) {
#pragma omp simd
        for (uint32_t x = 0; x < n; ++x) {
            const float ar = aRe[x], ai = aIm[x], br = bRe[x], bi = bIm[x];
            float re, im;
            ComplexProduct<kConjugate>(ar, ai, br, bi, scale, re, im);
            oRe[x] = re;
            oIm[x] = im;
        }
    };
}

// Round to nearest (ties to even) and keep the low bits of the integer, as an integer
// store of that width does. fmod is exact, so large values keep their true low bits; a
// value that is not finite has none and gives 0.
template <class T> T LowBitsOfRounded(float p) {
    constexpr float kModulus = static_cast<float>(uint32_t{1} << (8 * sizeof(T)));
    const float rounded = std::nearbyint(p);
    if (!std::isfinite(rounded))
        return 0;
    return static_cast<T>(static_cast<int32_t>(std::fmod(rounded, kModulus)));
}

// The box forms pair their sorted boxes pixel by pixel; the boxes may lie anywhere.
template <class Op>
void BoxBinary(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
               const cImageBox& sortedA, const cImageBox& sortedB, const cImageBox& sortedOut,
               Op op) {
    Walk(BoxExtent(sortedA), PerPixel(op), At(out, sortedOut), At(a, sortedA), At(b, sortedB));
}

template <class Op> void Unary(const cFloatImagePtr& a, const cFloatImagePtr& out, Op op) {
    Walk(a->GetDimensions(), PerPixel(op), Whole(out), Whole(a));
}

template <class Op>
void Binary(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out, Op op) {
    Walk(a->GetDimensions(), PerPixel(op), Whole(out), Whole(a), Whole(b));
}

bool IsPowerOfTwo(int64_t v) {
    return v > 0 && (v & (v - 1)) == 0;
}

} // namespace

void cImageMathGeneric::RequireImages(const char* operation,
                                      std::initializer_list<const cFloatImagePtr*> images) const {
    for (const cFloatImagePtr* image : images)
        if (image->IsNull())
            Fail(std::string("NULL input image in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireSameSize(const char* operation, const cFloatImagePtr& a,
                                        const cFloatImagePtr& b) const {
    if (!(a->GetDimensions() == b->GetDimensions()))
        Fail(std::string("Invalid Dimensions in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireLineSearchImages(const cFloatImagePtr& data,
                                                const cFloatImagePtr& blurred,
                                                const cFloatImagePtr& direction,
                                                const cFloatImagePtr& work) const {
    const char* name = "ComputeLogLikelihoodIncreaseByLineSearch";
    RequireImages(name, {&data, &blurred, &direction, &work});
    RequireSameSize(name, data, blurred);
    RequireSameSize(name, data, direction);
    const cImageDimensions& size = data->GetDimensions();
    const cImageDimensions& workSize = work->GetDimensions();
    const bool workFits =
        size.z == 1 ? workSize.x == size.x && workSize.y == size.y : workSize == size;
    if (!workFits)
        Fail(std::string("Invalid Dimensions in ") + name, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireRoiInside(const char* operation, const cFloatImagePtr& image,
                                         const cImageBox& box) const {
    if (!image->IsRoiInside(box))
        Fail(std::string("Roi out of bounds in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathGeneric::RequireSameRoiSize(const char* operation, const cImageBox& a,
                                           const cImageBox& b) const {
    if (a.x1 - a.x0 != b.x1 - b.x0 || a.y1 - a.y0 != b.y1 - b.y0 || a.z1 - a.z0 != b.z1 - b.z0)
        Fail(std::string("InvalidRoi size in ") + operation, OVD_ERR_PARAMETER);
}

cImageBox cImageMathGeneric::Sorted(const cImageBox& box) {
    return {std::min(box.x0, box.x1), std::min(box.y0, box.y1), std::min(box.z0, box.z1),
            std::max(box.x0, box.x1), std::max(box.y0, box.y1), std::max(box.z0, box.z1)};
}

// ---- Element-wise arithmetic. Each member checks, then hands one pixel rule to Walk.

void cImageMathGeneric::AddImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                 const cFloatImagePtr& out) {
    Guard([&] {
        if (a.IsNull() || b.IsNull() || out.IsNull())
            Fail("Null image input in AddImage", OVD_ERR_PARAMETER);
        RequireSameSize("AddImage", a, b);
        RequireSameSize("AddImage", a, out);
        Walk(a->GetDimensions(), PerPixel([](float p, float q) { return p + q; }), Whole(out),
             Whole(a), Whole(b));
    });
}

void cImageMathGeneric::AddImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                    const cFloatImagePtr& out, const cImageBox& boxA,
                                    const cImageBox& boxB, const cImageBox& boxOut) {
    Guard([&] {
        RequireImages("AddImageRoi", {&a, &b, &out});
        RequireRoiInside("AddImageRoi", a, boxA);
        RequireRoiInside("AddImageRoi", b, boxB);
        RequireRoiInside("AddImageRoi", out, boxOut);
        RequireSameRoiSize("AddImageRoi", boxA, boxB);
        RequireSameRoiSize("AddImageRoi", boxA, boxOut);
        BoxBinary(a, b, out, Sorted(boxA), Sorted(boxB), Sorted(boxOut),
                  [](float p, float q) { return p + q; });
    });
}

void cImageMathGeneric::AddImageByConstant(const cFloatImagePtr& a, const float& c,
                                           const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("AddImageByConstant", {&a, &out});
        RequireSameSize("AddImageByConstant", a, out);
        Unary(a, out, [c](float p) { return p + c; });
    });
}

void cImageMathGeneric::SubtractImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                      const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SubtractImage", {&a, &b, &out});
        RequireSameSize("SubtractImage", a, b);
        RequireSameSize("SubtractImage", a, out);
        Binary(a, b, out, [](float p, float q) { return p - q; });
    });
}

void cImageMathGeneric::AbsoluteValueImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("AbsoluteValueImage", {&a, &out});
        RequireSameSize("AbsoluteValueImage", a, out);
        Unary(a, out, [](float p) { return std::fabs(p); });
    });
}

void cImageMathGeneric::SubtractImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                         const cFloatImagePtr& out, const cImageBox& boxA,
                                         const cImageBox& boxB, const cImageBox& boxOut) {
    Guard([&] {
        RequireImages("SubtractImageRoi", {&a, &b, &out});
        RequireRoiInside("SubtractImageRoi", a, boxA);
        RequireRoiInside("SubtractImageRoi", b, boxB);
        RequireRoiInside("SubtractImageRoi", out, boxOut);
        RequireSameRoiSize("SubtractImageRoi", boxA, boxB);
        RequireSameRoiSize("SubtractImageRoi", boxA, boxOut);
        BoxBinary(a, b, out, Sorted(boxA), Sorted(boxB), Sorted(boxOut),
                  [](float p, float q) { return p - q; });
    });
}

void cImageMathGeneric::SubtractImageByConstant(const cFloatImagePtr& a, const float& c,
                                                const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SubtractImageByConstant", {&a, &out});
        RequireSameSize("SubtractImageByConstant", a, out);
        Unary(a, out, [c](float p) { return p - c; });
    });
}

// The slice forms work in place; a slice beyond the image is refused rather than written.
void cImageMathGeneric::SubtractImageSliceByConstant(const cFloatImagePtr& image, const float& c,
                                                     const unsigned& z) {
    Guard([&] {
        RequireImages("SubtractImageSliceByConstant", {&image});
        if (z >= image->GetSizeZ())
            Fail("Invalid Dimensions in SubtractImageSliceByConstant", OVD_ERR_PARAMETER);
        const cView<float> slice = Slice(image, z);
        Walk(SliceExtent(image->GetDimensions()), PerPixel([c](float p) { return p - c; }), slice,
             slice);
    });
}

namespace {
// v = p - c; mode 1 replaces v below the threshold by value, any other mode v above it.
void SubtractAndThreshold(const cFloatImagePtr& image, float c, float threshold, float value,
                          int mode) {
    if (mode == 1)
        Unary(image, image, [=](float p) {
            const float v = p - c;
            return v < threshold ? value : v;
        });
    else
        Unary(image, image, [=](float p) {
            const float v = p - c;
            return v > threshold ? value : v;
        });
}
} // namespace

void cImageMathGeneric::SubtractImageByConstantAndThreshold(const cFloatImagePtr& image,
                                                            const float& c, const float& threshold,
                                                            const float& value, int mode) {
    Guard([&] {
        RequireImages("SubtractImageByConstantAndThreshold", {&image});
        SubtractAndThreshold(image, c, threshold, value, mode);
    });
}

// p - 0 is p for every float, so the form without a constant shares the loop.
void cImageMathGeneric::SubtractImageByConstantAndThreshold(const cFloatImagePtr& image,
                                                            const float& threshold,
                                                            const float& value, int mode) {
    Guard([&] {
        RequireImages("SubtractImageByConstantAndThreshold", {&image});
        SubtractAndThreshold(image, 0.0f, threshold, value, mode);
    });
}

void cImageMathGeneric::SubtractThresholdAndScaleImage(const cFloatImagePtr& image,
                                                       const float& c, const float& threshold,
                                                       const float& value, const float& scale) {
    Guard([&] {
        RequireImages("SubtractThresholdAndScaleImage", {&image});
        Unary(image, image, [c, threshold, value, scale](float p) {
            const float v = p - c;
            return (v < threshold ? value : v) * scale;
        });
    });
}

void cImageMathGeneric::ThresholdAndScaleImage(const cFloatImagePtr& image, const float& low,
                                               const float& high, const float& outLow,
                                               const float& outHigh) {
    Guard([&] {
        RequireImages("ThresholdAndScaleImage", {&image});
        if (low > high)
            Fail("Invalid input thresholds in ThresholdAndScaleImage", OVD_ERR_PARAMETER);
        const float outRange = outHigh - outLow, inRange = high - low;
        const float l = low, h = high, ol = outLow, oh = outHigh;
        Unary(image, image, [=](float p) {
            const float scaled = (p - l) * outRange / inRange + ol;
            return p <= l ? ol : p >= h ? oh : scaled;
        });
    });
}

void cImageMathGeneric::MultiplyImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                      const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MultiplyImage", {&a, &b, &out});
        RequireSameSize("MultiplyImage", a, b);
        RequireSameSize("MultiplyImage", a, out);
        Binary(a, b, out, [](float p, float q) { return p * q; });
    });
}

void cImageMathGeneric::MultiplyImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                         const cFloatImagePtr& out, const cImageBox& boxA,
                                         const cImageBox& boxB, const cImageBox& boxOut) {
    Guard([&] {
        RequireImages("MultiplyImageRoi", {&a, &b, &out});
        RequireRoiInside("MultiplyImageRoi", a, boxA);
        RequireRoiInside("MultiplyImageRoi", b, boxB);
        RequireRoiInside("MultiplyImageRoi", out, boxOut);
        RequireSameRoiSize("MultiplyImageRoi", boxA, boxB);
        RequireSameRoiSize("MultiplyImageRoi", boxA, boxOut);
        BoxBinary(a, b, out, Sorted(boxA), Sorted(boxB), Sorted(boxOut),
                  [](float p, float q) { return p * q; });
    });
}

void cImageMathGeneric::MultiplyImageByConstant(const cFloatImagePtr& a, const float& c,
                                                const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MultiplyImageByConstant", {&a, &out});
        RequireSameSize("MultiplyImageByConstant", a, out);
        Unary(a, out, [c](float p) { return p * c; });
    });
}

void cImageMathGeneric::MultiplyImageSliceByConstant(const cFloatImagePtr& image, const float& c,
                                                     const unsigned& z) {
    Guard([&] {
        RequireImages("MultiplyImageSliceByConstant", {&image});
        if (z >= image->GetSizeZ())
            Fail("Invalid Dimensions in MultiplyImageSliceByConstant", OVD_ERR_PARAMETER);
        const cView<float> slice = Slice(image, z);
        Walk(SliceExtent(image->GetDimensions()), PerPixel([c](float p) { return p * c; }), slice,
             slice);
    });
}

// Interleaved lines hold x size / 2 pairs (re, im); an odd last float is left alone.
void cImageMathGeneric::MultiplyComplexImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                             const cFloatImagePtr& out, const float& scale,
                                             int conjugate) {
    Guard([&] {
        RequireImages("MultiplyComplexImage", {&a, &b, &out});
        RequireSameSize("MultiplyComplexImage", a, b);
        RequireSameSize("MultiplyComplexImage", a, out);
        if (conjugate == 1)
            Walk(a->GetDimensions(), InterleavedProduct<true>(scale), Whole(out), Whole(a),
                 Whole(b));
        else
            Walk(a->GetDimensions(), InterleavedProduct<false>(scale), Whole(out), Whole(a),
                 Whole(b));
    });
}

void cImageMathGeneric::MultiplyComplexImage(const cFloatImagePtr& aRe, const cFloatImagePtr& aIm,
                                             const cFloatImagePtr& bRe, const cFloatImagePtr& bIm,
                                             const cFloatImagePtr& outRe,
                                             const cFloatImagePtr& outIm, const float& scale,
                                             int conjugate) {
    Guard([&] {
        RequireImages("MultiplyComplexImage", {&aRe, &aIm, &bRe, &bIm, &outRe, &outIm});
        for (const cFloatImagePtr* other : {&aIm, &bRe, &bIm, &outRe, &outIm})
            RequireSameSize("MultiplyComplexImage", aRe, *other);
        const cImageDimensions size = aRe->GetDimensions();
        if (conjugate == 1)
            Walk(size, SplitProduct<true>(scale), Whole(outRe), Whole(outIm), Whole(aRe),
                 Whole(aIm), Whole(bRe), Whole(bIm));
        else
            Walk(size, SplitProduct<false>(scale), Whole(outRe), Whole(outIm), Whole(aRe),
                 Whole(aIm), Whole(bRe), Whole(bIm));
    });
}

void cImageMathGeneric::DivideImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                    const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("DivideImage", {&a, &b, &out});
        RequireSameSize("DivideImage", a, b);
        RequireSameSize("DivideImage", a, out);
        Binary(a, b, out, [](float p, float q) { return q == 0.0f ? 0.0f : p / q; });
    });
}

void cImageMathGeneric::PowerOfImageDivisionWithThreshold(
    const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
    const float& exponent, const float& threshold, const float& value) {
    Guard([&] {
        RequireImages("PowerOfImageDivisionWithThreshold", {&a, &b, &out});
        RequireSameSize("PowerOfImageDivisionWithThreshold", a, b);
        RequireSameSize("PowerOfImageDivisionWithThreshold", a, out);
        if (exponent == 0.0f) {
            Fill(out->GetDimensions(), Whole(out), 1.0f);
            return;
        }
        const float e = exponent, t = threshold, v = value;
        Binary(a, b, out,
               [=](float p, float q) { return (q <= t || q == 0.0f) ? v : std::pow(p / q, e); });
    });
}

void cImageMathGeneric::ExtrapolationGradient(const cFloatImagePtr& object,
                                              const cFloatImagePtr& factor,
                                              const cFloatImagePtr& lastGradient,
                                              const cFloatImagePtr& plain,
                                              const cFloatImagePtr& gradient, double& cross,
                                              double& lastSquare) {
    Guard([&] {
        RequireImages("ExtrapolationGradient", {&object, &factor, &lastGradient, &plain, &gradient});
        for (const cFloatImagePtr* other : {&factor, &lastGradient, &plain, &gradient})
            RequireSameSize("ExtrapolationGradient", object, *other);
        const PassKernels::cGradientSums sums = Reduce(
            object->GetDimensions(), PassKernels::cGradientSums{},
            [](uint32_t n, PassKernels::cGradientSums& partial, float* x, float* m, float* last,
               float* p, float* h) {
                PassKernels::ExtrapolationGradientLine(n, x, m, last, p, h, partial);
            },
            [](PassKernels::cGradientSums& total, const PassKernels::cGradientSums& piece) {
                total.cross += piece.cross;
                total.lastSquare += piece.lastSquare;
            },
            Whole(object), Whole(factor), Whole(lastGradient), Whole(plain), Whole(gradient));
        cross = sums.cross;
        lastSquare = sums.lastSquare;
    });
}

void cImageMathGeneric::ExtrapolateWithFloor(const cFloatImagePtr& plain,
                                             const cFloatImagePtr& previous,
                                             const cFloatImagePtr& out, float alpha,
                                             float threshold, float maxRatio, float floor) {
    Guard([&] {
        RequireImages("ExtrapolateWithFloor", {&plain, &previous, &out});
        RequireSameSize("ExtrapolateWithFloor", plain, previous);
        RequireSameSize("ExtrapolateWithFloor", plain, out);
        const float f = floor;
        if (alpha == 0.0f) {
            Unary(plain, out, [=](float p) { return p < f ? f : p; });
            return;
        }
        Walk(
            plain->GetDimensions(),
            [=](uint32_t n, float* o, const float* p, const float* q) {
                PassKernels::ExtrapolateLine(n, p, q, o, alpha, threshold, maxRatio, f);
            },
            Whole(out), Whole(plain), Whole(previous));
    });
}

void cImageMathGeneric::SquareRootImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SquareRootImage", {&a, &out});
        RequireSameSize("SquareRootImage", a, out);
        Unary(a, out, [](float p) { return p <= 0.0f ? 0.0f : std::sqrt(p); });
    });
}

void cImageMathGeneric::SquareImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SquareImage", {&a, &out});
        RequireSameSize("SquareImage", a, out);
        Unary(a, out, [](float p) { return p * p; });
    });
}

// The floored value is stored back into a as well, so later users of a see no value
// below the guard.
void cImageMathGeneric::LogImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("LogImage", {&a, &out});
        RequireSameSize("LogImage", a, out);
        Walk(
            a->GetDimensions(),
            [](uint32_t n, float* o, float* p) {
                for (uint32_t x = 0; x < n; ++x) {
                    const float raised = std::max(p[x], kGuard);
                    p[x] = raised;
                    o[x] = std::log(raised);
                }
            },
            Whole(out), Whole(a));
    });
}

// Scales slices firstSlice..lastSlice so that together they sum to target. A range that
// sums to 0 is filled with target divided by the elements of one memory block of a: the
// whole stack for a single-block image, one slice otherwise.
void cImageMathGeneric::NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out,
                                       const unsigned& firstSlice, const unsigned& lastSlice,
                                       const float& target) {
    Guard([&] {
        RequireImages("NormalizeImage", {&a, &out});
        RequireSameSize("NormalizeImage", a, out);
        if (lastSlice >= a->GetSizeZ())
            Fail("Invalid Input in NormalizeImage", OVD_ERR_PARAMETER);
        if (firstSlice > lastSlice)
            return;
        // The slice sums and the scaling of a whole stack are the back end's own operations.
        double sum = 0.0;
        for (uint32_t z = firstSlice; z <= lastSlice; ++z)
            sum += SumImageSlice(a, z);
        const cImageDimensions range{a->GetSizeX(), a->GetSizeY(), lastSlice - firstSlice + 1};
        const cView<float> from = Slice(a, firstSlice), to = Slice(out, firstSlice);
        if (static_cast<float>(sum) == 0.0f) {
            Fill(range, to, target / static_cast<float>(a->GetElementsPerBlock()));
            return;
        }
        const float factor = static_cast<float>(target / sum);
        // A finite sum means finite pixels, which a factor of exactly 1 leaves as they are:
        // an image normalised once already, such as a PSF made to sum 1, is not walked again.
        if (factor == 1.0f && a.Get() == out.Get())
            return;
        if (range.z == a->GetSizeZ())
            MultiplyImageByConstant(a, factor, out);
        else
            Walk(range, PerPixel([factor](float p) { return p * factor; }), to, from);
    });
}

void cImageMathGeneric::NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out,
                                       float low, float high) {
    Guard([&] {
        RequireImages("NormalizeImage", {&a, &out});
        RequireSameSize("NormalizeImage", a, out);
        const float range = high - low;
        Unary(a, out, [low, range](float p) { return (p - low) / range; });
    });
}

void cImageMathGeneric::NormalizeImage(const cFloatImagePtr& a, const cFloatImagePtr& out,
                                       float gamma) {
    Guard([&] {
        RequireImages("NormalizeImage", {&a, &out});
        RequireSameSize("NormalizeImage", a, out);
        const float exponent = 1.0f / gamma;
        Unary(a, out, [exponent](float p) { return std::pow(p, exponent); });
    });
}

// ---- Reductions. Sums run over ImageWalk's fixed partition, so they are bit-identical for
// any thread count; the image sums accumulate in double, the others in float.

float cImageMathGeneric::FindMinimumValue(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("FindMinimumValue", {&image});
        return MinimumOf(image);
    });
}

void cImageMathGeneric::FindMinimumAndMaximumValue(const cFloatImagePtr& image, float& minimum,
                                                   float& maximum) {
    Guard([&] {
        RequireImages("FindMinimumAndMaximumValue", {&image});
        struct Range {
            float low, high;
        };
        const Range range = Reduce(
            image->GetDimensions(), Range{kLargest, -kLargest},
            [](uint32_t n, Range& partial, const float* p) {
                float low = partial.low, high = partial.high;
#pragma omp simd reduction(min : low) reduction(max : high)
                for (uint32_t x = 0; x < n; ++x) {
                    low = p[x] < low ? p[x] : low;
                    high = p[x] > high ? p[x] : high;
                }
                partial = {low, high};
            },
            [](Range& total, Range piece) {
                total.low = piece.low < total.low ? piece.low : total.low;
                total.high = piece.high > total.high ? piece.high : total.high;
            },
            Whole(image));
        minimum = range.low;
        maximum = range.high;
    });
}

float cImageMathGeneric::FindMaximumValue(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("FindMaximumValue", {&image});
        return MaximumOf(image);
    });
}

unsigned cImageMathGeneric::CountPixelInRange(const cFloatImagePtr& image, const float& low,
                                              const float& high) {
    return Guard([&] {
        RequireImages("CountPixelInRange", {&image});
        return CountInRange(image, low, high);
    });
}

bool cImageMathGeneric::RequireLimitCounts(const cFloatImagePtr& image,
                                           const std::vector<float>& limits,
                                           const std::vector<uint64_t>& counts) const {
    RequireImages("CountPixelsBelowLimits", {&image});
    if (counts.size() != limits.size() || !std::is_sorted(limits.begin(), limits.end()))
        Fail("Invalid limits in CountPixelsBelowLimits", OVD_ERR_PARAMETER);
    return !limits.empty();
}

void cImageMathGeneric::CountPixelsBelowLimits(const cFloatImagePtr& image,
                                               const std::vector<float>& limits,
                                               std::vector<uint64_t>& counts) {
    Guard([&] {
        if (!RequireLimitCounts(image, limits, counts))
            return;
        // A value at or above the top limit, or NaN, falls into the extra last bin.
        const cLimitCells cells(limits);
        const std::vector<uint64_t> found = Reduce(
            image->GetDimensions(), std::vector<uint64_t>(limits.size() + 1, 0),
            [&](uint32_t n, std::vector<uint64_t>& partial, const float* p) {
                uint64_t* counted = partial.data();
                for (uint32_t x = 0; x < n; ++x)
                    ++counted[cells.Bin(p[x])];
            },
            [](std::vector<uint64_t>& total, const std::vector<uint64_t>& piece) {
                for (std::size_t k = 0; k < total.size(); ++k)
                    total[k] += piece[k];
            },
            Whole(image));
        for (std::size_t k = 0; k < counts.size(); ++k)
            counts[k] += found[k];
    });
}

double cImageMathGeneric::SumImage(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("SumImage", {&image});
        return SumDouble(image->GetDimensions(), Whole(image), [](float p) { return p; });
    });
}

// The same pixels and the same sum as SumImage after NormalizeImage(image, out, low, high):
// each scaled pixel is the float that the normalisation would store.
double cImageMathGeneric::SumNormalizedImage(const cFloatImagePtr& image, float low, float high) {
    return Guard([&] {
        RequireImages("SumNormalizedImage", {&image});
        const float range = high - low;
        return SumDouble(image->GetDimensions(), Whole(image),
                         [low, range](float p) { return (p - low) / range; });
    });
}

// Each square is a float product, as all pixel arithmetic is; only the sum is double.
double cImageMathGeneric::SumImageSquared(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("SumImageSquared", {&image});
        return SumDouble(image->GetDimensions(), Whole(image), [](float p) { return p * p; });
    });
}

float cImageMathGeneric::SumOfImageProduct(const cFloatImagePtr& a, const cFloatImagePtr& b) {
    return Guard([&] {
        RequireImages("SumOfImageProduct", {&a, &b});
        RequireSameSize("SumOfImageProduct", a, b);
        return SumFloat(
            a->GetDimensions(), [](float p, float q) { return p * q; }, Whole(a), Whole(b));
    });
}

double cImageMathGeneric::AbsoluteSumImage(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("AbsoluteSumImage", {&image});
        return SumDouble(image->GetDimensions(), Whole(image),
                         [](float p) { return std::fabs(p); });
    });
}

double cImageMathGeneric::SumImageSlice(const cFloatImagePtr& image, const unsigned& z) {
    return Guard([&] {
        RequireImages("SumImageSlice", {&image});
        if (z >= image->GetSizeZ())
            Fail("Invalid Dimensions in SumImageSlice", OVD_ERR_PARAMETER);
        return SliceSum(image, z);
    });
}

float cImageMathGeneric::AverageImage(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("AverageImage", {&image});
        const float sum = SumFloat(
            image->GetDimensions(), [](float p) { return p; }, Whole(image));
        return sum / static_cast<float>(image->GetVoxelCount());
    });
}

namespace {
struct cMaskedSum {
    float sum = 0.0f;
    uint32_t count = 0;
};

// Mean of the pixels whose mask equals `mark`; an empty mask gives 0/0.
float MaskedMean(const cFloatImagePtr& image, const cFloatImagePtr& mask, float mark) {
    const cMaskedSum total = Reduce(
        image->GetDimensions(), cMaskedSum{},
        [mark](uint32_t n, cMaskedSum& partial, const float* p, const float* m) {
            float sum = 0.0f;
            uint32_t count = 0;
#pragma omp simd reduction(+ : sum, count)
            for (uint32_t x = 0; x < n; ++x) {
                const bool inside = m[x] == mark;
                sum += inside ? p[x] : 0.0f;
                count += inside ? 1u : 0u;
            }
            partial.sum += sum;
            partial.count += count;
        },
        [](cMaskedSum& all, const cMaskedSum& piece) {
            all.sum += piece.sum;
            all.count += piece.count;
        },
        Whole(image), Whole(mask));
    return total.sum / static_cast<float>(total.count);
}
} // namespace

float cImageMathGeneric::MaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) {
    return Guard([&] {
        RequireImages("MaskedAverageImage", {&image, &mask});
        RequireSameSize("MaskedAverageImage", image, mask);
        return MaskedMean(image, mask, 1.0f);
    });
}

float cImageMathGeneric::UnMaskedAverageImage(const cFloatImagePtr& image, cFloatImagePtr mask) {
    return Guard([&] {
        RequireImages("UnMaskedAverageImage", {&image, &mask});
        RequireSameSize("UnMaskedAverageImage", image, mask);
        return MaskedMean(image, mask, 0.0f);
    });
}

// Symmetrises each slice of a spectrum held in wrap-around order about its origin: the
// four pixels at distance i on the axes share their mean, and so do the eight mirror
// images of (j, i) off the axes. The means are formed from the slice as it was and
// gathered in work, which then replaces the slice; the origin and everything beyond half
// the smaller side stay as they are.
void cImageMathGeneric::RadialAverage(const cFloatImagePtr& image, const cFloatImagePtr& work) {
    Guard([&] {
        RequireImages("RadialAverage", {&image, &work});
        if (!image->HasSameSliceSize(*work))
            Fail("Invalid Dimensions in RadialAverage", OVD_ERR_PARAMETER);
        const uint32_t w = image->GetSizeX(), h = image->GetSizeY();
        const uint32_t n = (std::min(w, h) + 1) / 2;
        const std::size_t slice = std::size_t{w} * h;
        for (uint32_t z = 0; z < image->GetSizeZ(); ++z) {
            const float* in = image->GetSlicePointer(z);
            float* out = work->GetSlicePointer(0);
            const auto at = [w](uint32_t x, uint32_t y) { return std::size_t{y} * w + x; };
            std::memcpy(out, in, slice * sizeof(float));
            for (uint32_t i = 1; i < n; ++i) {
                const std::size_t axis[4] = {at(i, 0), at(w - i, 0), at(0, i), at(0, h - i)};
                const float mean = (in[axis[0]] + in[axis[1]] + in[axis[2]] + in[axis[3]]) / 4.0f;
                for (std::size_t k : axis)
                    out[k] = mean;
            }
            for (uint32_t i = 1; i < n; ++i)
                for (uint32_t j = i; j < n; ++j) {
                    const std::size_t ring[8] = {at(j, i),         at(w - j, i),    at(j, h - i),
                                                 at(w - j, h - i), at(i, j),        at(w - i, j),
                                                 at(i, h - j),     at(w - i, h - j)};
                    float sum = 0.0f;
                    for (std::size_t k : ring)
                        sum += in[k];
                    const float mean = sum / 8.0f;
                    for (std::size_t k : ring)
                        out[k] = mean;
                }
            std::memcpy(image->GetSlicePointer(z), out, slice * sizeof(float));
        }
    });
}

// ---- Non-negativity. Negative values are bent up onto a parabola through (m, 0) and
// (t, t) that meets the identity at t, so the minimum m maps to 0 and values from t on
// keep their value.

namespace {
void Compress(const cFloatImagePtr& a, const cFloatImagePtr& out, float m, float t) {
    Unary(a, out, [m, t](float p) {
        const float v = (p - m) / (t - m);
        return p >= t ? p : v * v * t;
    });
}
} // namespace

void cImageMathGeneric::NonNegativityCompression(const cFloatImagePtr& a, float originalSum,
                                                 const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("NonNegativityCompression", {&a, &out});
        RequireSameSize("NonNegativityCompression", a, out);
        const float m = MinimumOf(a);
        if (m >= 0.0f) {
            CopyEqual(a, out);
            return;
        }
        float maximum = MaximumOf(a);
        if (!(maximum > 0.0f))
            maximum = 0.0f;
        // The bend reaches up to a tenth of the smaller of the two extremes, and never
        // above the mean that the original image had.
        float t = 0.1f * std::min(maximum, std::fabs(m));
        const float mean = originalSum / static_cast<float>(a->GetVoxelCount());
        if (!(mean > t))
            t = mean;
        Compress(a, out, m, t);
    });
}

// Written on the interface alone (minimum, count, subtraction, threshold, scaling), so the
// same steps run on whichever back end this object is.
void cImageMathGeneric::NonNegativityLinearCompression(const cFloatImagePtr& a, float originalSum,
                                                       float limit, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("NonNegativityLinearCompression", {&a, &out});
        RequireSameSize("NonNegativityLinearCompression", a, out);
        const float m = FindMinimumValue(a);
        if (m >= 0.0f) {
            if (a.Get() != out.Get())
                CopyImage(a, out);
            return;
        }
        // An infinite minimum would keep the pedestal below -1 for ever.
        if (!std::isfinite(m))
            Fail("Image values not finite in NonNegativityLinearCompression", OVD_ERR_PARAMETER);
        const double pixels = static_cast<double>(a->GetVoxelCount());
        double r = CountPixelInRange(a, m, 0.0f) / pixels;
        if (r <= limit)
            return;
        // The pedestal t starts at nine tenths of the minimum and rises by tenths until
        // `limit` of the pixels lie between the minimum and t, or until it passes -1. Every
        // step it may reach (up to the first past -1, and at least two) is counted in one
        // pass; the search then runs on the counts: the pixels below step k, which all lie
        // at or above the minimum, are the counts up to k.
        const double shrink = 0.9f, margin = 0.001f;
        std::vector<double> steps{shrink * m};
        while (!(steps.back() > -1.0) || steps.size() < 2)
            steps.push_back(shrink * steps.back());
        const std::vector<float> limits(steps.begin(), steps.end());
        std::vector<uint64_t> counts(limits.size(), 0);
        CountPixelsBelowLimits(a, limits, counts);
        std::size_t k = 0;
        uint64_t below = counts[0];
        double t = steps[0];
        r = 0.0;
        while (r < limit) {
            r = static_cast<double>(below) / pixels;
            if (r < limit) {
                ++k;
                t = steps[k];
                below += counts[k];
            }
            if (t > -1.0)
                r = limit + margin;
        }
        // Raising by -t adds -t per pixel; the scale brings the sum back to originalSum. The
        // raise, the clip and the scale are one pass: p - t clipped is (p - t) - 0 clipped,
        // bit for bit.
        const double scale = originalSum / (originalSum - t * pixels);
        if (a.Get() != out.Get())
            CopyImage(a, out);
        SubtractThresholdAndScaleImage(out, static_cast<float>(t), 0.0f, 0.0f,
                                       static_cast<float>(scale));
    });
}

void cImageMathGeneric::NonNegativityCompressionInverted(const cFloatImagePtr& a,
                                                         const cFloatImagePtr& out,
                                                         float* pedestal) {
    Guard([&] {
        RequireImages("NonNegativityCompressionInverted", {&a, &out});
        RequireSameSize("NonNegativityCompressionInverted", a, out);
        const float m = MinimumOf(a);
        if (m >= 0.0f) {
            CopyEqual(a, out);
            return;
        }
        // An infinite minimum would keep the pedestal below -1 for ever.
        if (!std::isfinite(m))
            Fail("Image values not finite in NonNegativityCompressionInverted", OVD_ERR_PARAMETER);
        float reported = 0.0f;
        float* const report = pedestal ? pedestal : &reported;
        *report = 0.0f;
        const float pixels = static_cast<float>(a->GetVoxelCount());
        if (CountInRange(a, m, 0.0f) / pixels <= 0.01f)
            return;
        // The pedestal starts at nine tenths of the minimum and rises by tenths until one
        // percent of the pixels lie between the minimum and it, or until it passes -1.
        float p = 0.9f * m;
        float r = 0.0f;
        while (r < 0.01f) {
            r = CountInRange(a, m, p) / pixels;
            if (r < 0.01f)
                p = 0.9f * p;
            if (p > -1.0f)
                r = 0.011f;
        }
        *report = p;
        Unary(a, a, [p](float v) { return v - p; });
        Compress(a, out, m - p, -p);
        SubtractAndThreshold(out, 0.0f, 0.1f, 0.1f, 1);
    });
}

// ---- Projections. Targets start at 0 for the maximum and the sum and at the largest
// float for the minimum, so a maximum over negative values stays 0.

void cImageMathGeneric::MinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                          int axis) {
    Guard([&] {
        RequireImages("MinimumProjection", {&in, &out});
        if (!FitsFold(in->GetDimensions(), out->GetDimensions(), axis))
            Fail("Invalid Dimensions in MinimumProjection", OVD_ERR_PARAMETER);
        Fill(out->GetDimensions(), Whole(out), kLargest);
        Fold(in, out, axis, 0, in->GetSizeZ() - 1, kMin);
    });
}

void cImageMathGeneric::MinimumImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                     const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MinimumImage", {&a, &b, &out});
        RequireSameSize("MinimumImage", a, b);
        RequireSameSize("MinimumImage", a, out);
        Binary(a, b, out, [](float p, float q) { return q < p ? q : p; });
    });
}

void cImageMathGeneric::MaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                          int axis) {
    Guard([&] {
        RequireImages("MaximumProjection", {&in, &out});
        if (!FitsFold(in->GetDimensions(), out->GetDimensions(), axis))
            Fail("Invalid Dimensions in MaximumProjection", OVD_ERR_PARAMETER);
        Fill(out->GetDimensions(), Whole(out), 0.0f);
        Fold(in, out, axis, 0, in->GetSizeZ() - 1, kMax);
    });
}

void cImageMathGeneric::MaximumImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                     const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MaximumImage", {&a, &b, &out});
        RequireSameSize("MaximumImage", a, b);
        RequireSameSize("MaximumImage", a, out);
        Binary(a, b, out, [](float p, float q) { return q > p ? q : p; });
    });
}

namespace {
// xy takes in's x and y, xz in's x and z, zy in's z and y, each in its slice 0.
template <class Combine>
void TripleFold(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz,
                const cFloatImagePtr& zy, float start, Combine combine) {
    const cFloatImagePtr* targets[3] = {&xy, &xz, &zy};
    for (int axis = 1; axis <= 3; ++axis) {
        const cFloatImagePtr& target = *targets[axis - 1];
        Fill(target->GetDimensions(), Whole(target), start);
        Fold(in, target, axis, 0, in->GetSizeZ() - 1, combine);
    }
}

bool FitsTriple(const cFloatImagePtr& in, const cFloatImagePtr& xy, const cFloatImagePtr& xz,
                const cFloatImagePtr& zy) {
    const cImageDimensions& s = in->GetDimensions();
    return FitsFold(s, xy->GetDimensions(), 1) && FitsFold(s, xz->GetDimensions(), 2) &&
           FitsFold(s, zy->GetDimensions(), 3);
}
} // namespace

void cImageMathGeneric::TripleMaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                                const cFloatImagePtr& xz,
                                                const cFloatImagePtr& zy) {
    Guard([&] {
        RequireImages("TripleMaximumProjection", {&in, &xy, &xz, &zy});
        if (!FitsTriple(in, xy, xz, zy))
            Fail("Invalid Dimensions in TripleMaximumProjection", OVD_ERR_PARAMETER);
        TripleFold(in, xy, xz, zy, 0.0f, kMax);
    });
}

void cImageMathGeneric::TripleMinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                                const cFloatImagePtr& xz,
                                                const cFloatImagePtr& zy) {
    Guard([&] {
        RequireImages("TripleMinimumProjection", {&in, &xy, &xz, &zy});
        if (!FitsTriple(in, xy, xz, zy))
            Fail("Invalid Dimensions in TripleMinimumProjection", OVD_ERR_PARAMETER);
        TripleFold(in, xy, xz, zy, kLargest, kMin);
    });
}

// The three maximum projections of a box, drawn as panels of one image (slice 0): pixel
// (i, j, k) of the box goes to (i, j) of the xy panel, (i, k) of the xz panel and (k, j)
// of the zy panel. Every panel must have the extent of its projection. The panels may
// share lines of out, so this runs on one thread; it serves previews, which are small.
void cImageMathGeneric::TripleMaximumProjectionRoi(const cFloatImagePtr& in,
                                                   const cFloatImagePtr& out, const cImageBox& box,
                                                   const cImageBox& xyBox, const cImageBox& xzBox,
                                                   const cImageBox& zyBox) {
    Guard([&] {
        const char* name = "TripleMaximumProjectionRoi";
        RequireImages(name, {&in, &out});
        RequireRoiInside(name, in, box);
        for (const cImageBox* panel : {&xyBox, &xzBox, &zyBox})
            RequireRoiInside(name, out, *panel);
        const uint32_t dx = box.x1 - box.x0, dy = box.y1 - box.y0, dz = box.z1 - box.z0;
        if (xyBox.x1 - xyBox.x0 != dx || xyBox.y1 - xyBox.y0 != dy || xzBox.x1 - xzBox.x0 != dx ||
            xzBox.y1 - xzBox.y0 != dz || zyBox.x1 - zyBox.x0 != dz || zyBox.y1 - zyBox.y0 != dy)
            Fail("InvalidRoi size in TripleMaximumProjectionRoi", OVD_ERR_PARAMETER);
        const cImageBox source = Sorted(box), pxy = Sorted(xyBox), pxz = Sorted(xzBox),
                        pzy = Sorted(zyBox);
        for (const cImageBox* panel : {&pxy, &pxz, &pzy})
            Fill(BoxExtent(*panel), At(out, *panel), 0.0f);
        const cImageDimensions e = BoxExtent(source);
        for (uint32_t k = 0; k < e.z; ++k)
            for (uint32_t j = 0; j < e.y; ++j) {
                const float* p = in->GetLinePointer(source.y0 + j, source.z0 + k) + source.x0;
                float* toXY = out->GetLinePointer(pxy.y0 + j, 0) + pxy.x0;
                float* toXZ = out->GetLinePointer(pxz.y0 + k, 0) + pxz.x0;
                float* toZY = out->GetLinePointer(pzy.y0 + j, 0) + pzy.x0 + k;
                for (uint32_t i = 0; i < e.x; ++i) {
                    toXY[i] = kMax(toXY[i], p[i]);
                    toXZ[i] = kMax(toXZ[i], p[i]);
                    *toZY = kMax(*toZY, p[i]);
                }
            }
    });
}

void cImageMathGeneric::TripleSumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                            const cFloatImagePtr& xz, const cFloatImagePtr& zy) {
    Guard([&] {
        RequireImages("TripleSumProjection", {&in, &xy, &xz, &zy});
        if (!FitsTriple(in, xy, xz, zy))
            Fail("Invalid Dimensions in TripleSumProjection", OVD_ERR_PARAMETER);
        TripleFold(in, xy, xz, zy, 0.0f, kSum);
    });
}

// Axis 1 adds slices firstSlice..lastSlice (-1: the first, the last) into slice 0 of out.
// The other axes check out's size and clear it; nothing needs their sums. A slice range
// that leaves the image is refused before out is touched.
void cImageMathGeneric::SumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis,
                                      int firstSlice, int lastSlice) {
    Guard([&] {
        RequireImages("SumProjection", {&in, &out});
        if (!FitsFold(in->GetDimensions(), out->GetDimensions(), axis))
            Fail("Invalid Dimensions in SumProjection", OVD_ERR_PARAMETER);
        const int64_t depth = in->GetSizeZ();
        const int64_t first = firstSlice == -1 ? 0 : firstSlice;
        const int64_t last = lastSlice == -1 ? depth - 1 : lastSlice;
        if (axis == 1 && (first < 0 || last >= depth || first > last))
            Fail("Invalid Input in SumProjection", OVD_ERR_PARAMETER);
        Fill(out->GetDimensions(), Whole(out), 0.0f);
        if (axis == 1)
            Fold(in, out, 1, static_cast<uint32_t>(first), static_cast<uint32_t>(last), kSum);
    });
}

// ---- Filling and copying

void cImageMathGeneric::SetImageToConstant(const cFloatImagePtr& image, float value) {
    Guard([&] {
        RequireImages("SetImageToConstant", {&image});
        Fill(image->GetDimensions(), Whole(image), value);
    });
}

void cImageMathGeneric::SetRoiToConstant(const cFloatImagePtr& image, const cImageBox& box,
                                         float value) {
    Guard([&] {
        RequireImages("SetRoiToConstant", {&image});
        RequireRoiInside("SetRoiToConstant", image, box);
        const cImageBox sorted = Sorted(box);
        Fill(BoxExtent(sorted), At(image, sorted), value);
    });
}

// With different sizes only x decides: each line of in goes to the start of its line in
// out, cut to out's width or padded with zeros. Lines and slices that only one of the two
// images has are left out. Equal widths with other differences copy nothing.
void cImageMathGeneric::CopyImage(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("CopyImage", {&in, &out});
        const cImageDimensions& from = in->GetDimensions();
        const cImageDimensions& to = out->GetDimensions();
        if (from == to)
            CopyEqual(in, out);
        else if (from.x != to.x)
            CopyLines({to.x, std::min(from.y, to.y), std::min(from.z, to.z)}, Whole(in), Whole(out),
                      from.x, to.x);
    });
}

// The same for one slice of each image.
void cImageMathGeneric::CopyImageSlice(const cFloatImagePtr& in, const unsigned& zIn,
                                       const cFloatImagePtr& out, const unsigned& zOut) {
    Guard([&] {
        RequireImages("CopyImageSlice", {&in, &out});
        if (zIn >= in->GetSizeZ() || zOut >= out->GetSizeZ())
            Fail("Invalid Dimensions in CopyImageSlice", OVD_ERR_PARAMETER);
        const cImageDimensions& from = in->GetDimensions();
        const cImageDimensions& to = out->GetDimensions();
        if (in->HasSameSliceSize(*out)) {
            if (in.Get() != out.Get() || zIn != zOut)
                std::memcpy(out->GetSlicePointer(zOut), in->GetSlicePointer(zIn),
                            std::size_t{from.x} * from.y * sizeof(float));
        } else if (from.x != to.x) {
            CopyLines({to.x, std::min(from.y, to.y), 1}, Slice(in, zIn), Slice(out, zOut), from.x,
                      to.x);
        }
    });
}

bool cImageMathGeneric::FitsInterleaved(const cFloatImagePtr& split,
                                        const cImageDimensions& interleaved) {
    return split.IsNull() ||
           (uint64_t{split->GetSizeX()} * 2 == interleaved.x && split->GetSizeY() >= interleaved.y);
}

uint32_t cImageMathGeneric::InterleavedDepth(const cImageDimensions& interleaved,
                                             const cFloatImagePtr& re, const cFloatImagePtr& im) {
    uint32_t depth = interleaved.z;
    for (const cFloatImagePtr* split : {&re, &im})
        if (!split->IsNull())
            depth = std::min(depth, (*split)->GetSizeZ());
    return depth;
}

// out's lines take (re, im) pairs; a missing part is 0.
void cImageMathGeneric::CopyImageRealToComplex(const cFloatImagePtr& re, const cFloatImagePtr& im,
                                               const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("CopyImageRealToComplex", {&out});
        const cImageDimensions& size = out->GetDimensions();
        if (!FitsInterleaved(re, size) || !FitsInterleaved(im, size))
            Fail("Invalid Dimensions in CopyImageRealToComplex", OVD_ERR_PARAMETER);
        const uint32_t pairs = size.x / 2;
        const auto put = [pairs](float* slot, const float* source) {
            if (source)
                for (uint32_t x = 0; x < pairs; ++x)
                    slot[2 * x] = source[x];
            else
                for (uint32_t x = 0; x < pairs; ++x)
                    slot[2 * x] = 0.0f;
        };
        ImageWalk::ForEachLine({size.x, size.y, InterleavedDepth(size, re, im)},
                               [&](uint32_t y, uint32_t z) {
                                   float* line = out->GetLinePointer(y, z);
                                   put(line, re ? re->GetLinePointer(y, z) : nullptr);
                                   put(line + 1, im ? im->GetLinePointer(y, z) : nullptr);
                               });
    });
}

// Splits the pairs of in, each value times scale; a missing output is not produced.
void cImageMathGeneric::CopyImageComplexToReal(const cFloatImagePtr& in, const cFloatImagePtr& re,
                                               const cFloatImagePtr& im, const float& scale) {
    Guard([&] {
        RequireImages("CopyImageComplexToReal", {&in});
        const cImageDimensions& size = in->GetDimensions();
        if (!FitsInterleaved(re, size) || !FitsInterleaved(im, size))
            Fail("Invalid Dimensions in CopyImageComplexToReal", OVD_ERR_PARAMETER);
        const uint32_t pairs = size.x / 2;
        const float s = scale;
        const auto take = [pairs, s](const float* slot, float* target) {
            if (target)
                for (uint32_t x = 0; x < pairs; ++x)
                    target[x] = slot[2 * x] * s;
        };
        ImageWalk::ForEachLine({size.x, size.y, InterleavedDepth(size, re, im)},
                               [&](uint32_t y, uint32_t z) {
                                   const float* line = in->GetLinePointer(y, z);
                                   take(line, re ? re->GetLinePointer(y, z) : nullptr);
                                   take(line + 1, im ? im->GetLinePointer(y, z) : nullptr);
                               });
    });
}

void cImageMathGeneric::CopyRectangularRoi(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                           const cImageBox& boxIn, const cImageBox& boxOut) {
    Guard([&] {
        RequireImages("CopyRectangularRoi", {&in, &out});
        if (!in->IsRoiInside(boxIn))
            Fail("Roi out of bounds in Source CopyRectangularRoi", OVD_ERR_PARAMETER);
        if (!out->IsRoiInside(boxOut))
            Fail("Roi out of bounds in Desitination CopyRectangularRoi", OVD_ERR_PARAMETER);
        RequireSameRoiSize("CopyRectangularRoi", boxIn, boxOut);
        const cImageBox from = Sorted(boxIn), to = Sorted(boxOut);
        Walk(
            BoxExtent(from),
            [](uint32_t n, float* o, const float* p) { std::memmove(o, p, n * sizeof(float)); },
            At(out, to), At(in, from));
    });
}

void cImageMathGeneric::CopyReal(const float* source, float* target, const int& count) {
    if (count > 0)
        std::memmove(target, source, std::size_t(count) * sizeof(float));
}

// ---- Conversions. Float to integer rounds to nearest, ties to even, and keeps the low
// bits, as an integer store of that width would; integers to float are exact.

void cImageMathGeneric::ConvertRealtoShort(const cFloatImagePtr& in, const cShortImagePtr& out) {
    Guard([&] {
        if (in.IsNull() || out.IsNull())
            Fail("NULL input image in ConvertRealtoShort", OVD_ERR_PARAMETER);
        if (!(in->GetDimensions() == out->GetDimensions()))
            Fail("Invalid Dimensions in ConvertRealtoShort", OVD_ERR_PARAMETER);
        Walk(in->GetDimensions(), PerPixel(LowBitsOfRounded<uint16_t>), Whole(out), Whole(in));
    });
}

namespace {
template <class T>
void ConvertBox(const cFloatImagePtr& in, const cCountedPtr<cOvdImage<T>>& out,
                const cImageBox& sortedIn, const cImageBox& sortedOut) {
    Walk(BoxExtent(sortedIn), PerPixel(LowBitsOfRounded<T>), At(out, sortedOut), At(in, sortedIn));
}
} // namespace

void cImageMathGeneric::ConvertRealtoByteRoi(const cFloatImagePtr& in, const cByteImagePtr& out,
                                             const cCountedBox& boxIn, const cCountedBox& boxOut) {
    Guard([&] {
        if (in.IsNull() || out.IsNull() || boxIn.IsNull() || boxOut.IsNull())
            Fail("NULL input image in ConvertRealtoByteRoi", OVD_ERR_PARAMETER);
        if (!in->IsRoiInside(*boxIn) || !out->IsRoiInside(*boxOut))
            Fail("Roi out of bounds in ConvertRealtoByteRoi", OVD_ERR_PARAMETER);
        RequireSameRoiSize("ConvertRealtoByteRoi", *boxIn, *boxOut);
        ConvertBox(in, out, Sorted(*boxIn), Sorted(*boxOut));
    });
}

void cImageMathGeneric::ConvertRealtoShortRoi(const cFloatImagePtr& in, const cShortImagePtr& out,
                                              const cCountedBox& boxIn, const cCountedBox& boxOut) {
    Guard([&] {
        if (in.IsNull() || out.IsNull() || boxIn.IsNull() || boxOut.IsNull())
            Fail("NULL input image in ConvertRealtoShortRoi", OVD_ERR_PARAMETER);
        if (!in->IsRoiInside(*boxIn) || !out->IsRoiInside(*boxOut))
            Fail("Roi out of bounds in ConvertRealtoShortRoi", OVD_ERR_PARAMETER);
        RequireSameRoiSize("ConvertRealtoShortRoi", *boxIn, *boxOut);
        ConvertBox(in, out, Sorted(*boxIn), Sorted(*boxOut));
    });
}

namespace {
template <class T> void ToFloat(const T* source, float* target, int count) {
    for (int k = 0; k < count; ++k)
        target[k] = static_cast<float>(source[k]);
}

template <class T>
void ImageToFloat(const cCountedPtr<cOvdImage<T>>& in, const cFloatImagePtr& out) {
    Walk(in->GetDimensions(), PerPixel([](T p) { return static_cast<float>(p); }), Whole(out),
         Whole(in));
}
} // namespace

void cImageMathGeneric::ConvertUnsignedByteToReal(const uint8_t* source, float* target,
                                                  const int& count) {
    ToFloat(source, target, count);
}

void cImageMathGeneric::ConvertUnsignedByteToReal(const cByteImagePtr& in,
                                                  const cFloatImagePtr& out) {
    Guard([&] {
        if (in.IsNull() || out.IsNull())
            Fail("NULL input image in ConvertUnsignedByteToReal", OVD_ERR_PARAMETER);
        if (!(in->GetDimensions() == out->GetDimensions()))
            Fail("Invalid Dimensions in ConvertUnsignedByteToReal", OVD_ERR_PARAMETER);
        ImageToFloat(in, out);
    });
}

void cImageMathGeneric::ConvertUnsignedShortToReal(const uint16_t* source, float* target,
                                                   const int& count) {
    ToFloat(source, target, count);
}

void cImageMathGeneric::ConvertUnsignedShortToReal(const cShortImagePtr& in,
                                                   const cFloatImagePtr& out) {
    Guard([&] {
        if (in.IsNull() || out.IsNull())
            Fail("NULL input image in ConvertUnsignedShortToReal", OVD_ERR_PARAMETER);
        if (!(in->GetDimensions() == out->GetDimensions()))
            Fail("Invalid Dimensions in ConvertUnsignedShortToReal", OVD_ERR_PARAMETER);
        ImageToFloat(in, out);
    });
}

// Values above 2^24 round to the nearest float.
void cImageMathGeneric::ConvertUnsignedLongToReal(const uint32_t* source, float* target,
                                                  const int& count) {
    ToFloat(source, target, count);
}

// One channel of byte triples (such as the red of an RGB line) into target from `first` on.
void cImageMathGeneric::ConvertInterleavedByteToReal(const uint8_t* source, float* target,
                                                     const int& first, const int& count,
                                                     int channel) {
    for (int k = 0; k < count; ++k)
        target[first + k] = static_cast<float>(source[channel + 3 * std::ptrdiff_t{k}]);
}

// ---- Sizes

namespace {
// Walks from |value| in steps of `step` to the first power of two and gives it value's
// sign; 0 stays 0. A walk that can never arrive (a step of 0 off a power of two, or a
// downward walk that passes 1) answers the value itself rather than running forever.
int64_t PowerOfTwoFrom(int64_t value, int64_t step) {
    if (value == 0)
        return 0;
    const int64_t sign = value < 0 ? -1 : 1;
    int64_t v = value < 0 ? -value : value;
    while (!IsPowerOfTwo(v)) {
        if (step == 0 || v + step < 1)
            return value;
        v += step;
    }
    return sign * v;
}
} // namespace

// A size is accepted when it is its own nearest power of two, 0 included.
bool cImageMathGeneric::IsPowerOfTwoSize(const unsigned& sizeX, const unsigned& sizeY) {
    return PowerOfTwoFrom(sizeX, 1) == sizeX && PowerOfTwoFrom(sizeY, 1) == sizeY;
}

int cImageMathGeneric::NearestPowerOfTwo(int value, int step) {
    return static_cast<int>(PowerOfTwoFrom(value, step));
}

} // namespace Ovidane
