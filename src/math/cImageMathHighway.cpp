#include "math/cImageMathHighway.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerPool.h"
#include "math/HighwayKernels.h"
#include "math/cLimitCells.h"
#include "math/ImageWalk.h"

namespace Ovidane {
namespace {

namespace K = HighwayKernels;

// The largest float, where the plain searches start.
constexpr float kLargest = 3.4028235e38f;

// Pixels per kernel call when a run is cut into pieces for the worker threads: large enough
// that a call costs nothing next to its pixels, small enough to share a slice of the streaming
// passes (256 x 256 pixels, say) among threads.
constexpr std::size_t kChunk = std::size_t{1} << 14;

// The runs of an element-wise walk over whole images of one size: the whole stack when every
// image holds it in one block, else one run per slice (a slice is one piece in either layout).
// Runs are cut into chunks of kChunk pixels; the partition depends on the size and the layouts
// alone, never on the thread count.
struct cRuns {
    std::size_t run = 0;    // pixels per run
    uint32_t runs = 0;      // number of runs
    std::size_t chunks = 0; // chunks per run

    template <class... T> cRuns(const cImageDimensions& size, const cOvdImage<T>*... images) {
        const std::size_t plane = std::size_t{size.x} * size.y;
        const bool whole = (images->IsContiguous3D() && ...);
        run = whole ? plane * size.z : plane;
        runs = run == 0 ? 0 : (whole ? 1 : size.z);
        chunks = (run + kChunk - 1) / kChunk;
    }
    int64_t Items() const { return int64_t(runs) * int64_t(chunks); }
    uint32_t Slice(int64_t item) const { return static_cast<uint32_t>(item / int64_t(chunks)); }
    std::size_t First(int64_t item) const { return std::size_t(item % int64_t(chunks)) * kChunk; }
    std::size_t Length(int64_t item) const { return std::min(kChunk, run - First(item)); }
};

// Calls body(n, pointers...) for every chunk of the runs of the images, chunks in parallel.
template <class Body, class... T>
void ForEachRun(const cImageDimensions& size, Body&& body, const cOvdImage<T>*... images) {
    const cRuns runs(size, images...);
    cWorkerPool::ForEach(runs.Items(), ImageWalk::ThreadsFor(size.Voxels()),
                         [&](int64_t item, int) {
                             const uint32_t z = runs.Slice(item);
                             const std::size_t first = runs.First(item);
                             body(runs.Length(item), (images->GetSlicePointer(z) + first)...);
                         });
}

// Deterministic reduction over the chunks of ForEachRun: body(n, partial, pointers...) folds
// a chunk into its own partial value, and the partial values are joined in chunk order.
template <class Value, class Body, class Join, class... T>
Value ReduceRuns(const cImageDimensions& size, Value zero, Body&& body, Join&& join,
                 const cOvdImage<T>*... images) {
    const cRuns runs(size, images...);
    std::vector<Value> partial(static_cast<std::size_t>(runs.Items()), zero);
    cWorkerPool::ForEach(runs.Items(), ImageWalk::ThreadsFor(size.Voxels()),
                         [&](int64_t item, int) {
                             const uint32_t z = runs.Slice(item);
                             const std::size_t first = runs.First(item);
                             body(runs.Length(item), partial[std::size_t(item)],
                                  (images->GetSlicePointer(z) + first)...);
                         });
    Value total = zero;
    for (const Value& piece : partial)
        join(total, piece);
    return total;
}

// A part of an image that is walked line by line: the image and the first pixel of the part.
template <class T> struct cView {
    const cOvdImage<T>* image;
    uint32_t x0 = 0, y0 = 0, z0 = 0;
    T* Line(uint32_t j, uint32_t k) const { return image->GetLinePointer(y0 + j, z0 + k) + x0; }
};

template <class T> cView<T> At(const cCountedPtr<cOvdImage<T>>& image, const cImageBox& sorted) {
    return {image.Get(), sorted.x0, sorted.y0, sorted.z0};
}

// Calls body(n, line pointers...) for every line of `extent`, lines in parallel.
template <class Body, class... T>
void ForEachLine(const cImageDimensions& extent, Body&& body, const cView<T>&... views) {
    if (extent.x == 0)
        return;
    ImageWalk::ForEachLine(extent,
                           [&](uint32_t j, uint32_t k) { body(extent.x, views.Line(j, k)...); });
}

cImageBox SortedBox(const cImageBox& box) {
    return {std::min(box.x0, box.x1), std::min(box.y0, box.y1), std::min(box.z0, box.z1),
            std::max(box.x0, box.x1), std::max(box.y0, box.y1), std::max(box.z0, box.z1)};
}

cImageDimensions Extent(const cImageBox& sorted) {
    return {sorted.x1 - sorted.x0 + 1, sorted.y1 - sorted.y0 + 1, sorted.z1 - sorted.z0 + 1};
}

bool SameBoxSize(const cImageBox& a, const cImageBox& b) {
    return a.x1 - a.x0 == b.x1 - b.x0 && a.y1 - a.y0 == b.y1 - b.y0 && a.z1 - a.z0 == b.z1 - b.z0;
}

void Binary(K::eBinary op, const cFloatImagePtr& a, const cFloatImagePtr& b,
            const cFloatImagePtr& out) {
    ForEachRun(
        a->GetDimensions(),
        [op](std::size_t n, float* o, const float* p, const float* q) {
            K::Binary(op, o, p, q, n);
        },
        out.Get(), a.Get(), b.Get());
}

void Unary(K::eUnary op, const cFloatImagePtr& a, const cFloatImagePtr& out,
           const K::cUnaryArguments& arguments = {}) {
    ForEachRun(
        a->GetDimensions(),
        [op, &arguments](std::size_t n, float* o, const float* p) {
            K::Unary(op, o, p, n, arguments);
        },
        out.Get(), a.Get());
}

void BoxBinary(K::eBinary op, const cFloatImagePtr& a, const cFloatImagePtr& b,
               const cFloatImagePtr& out, const cImageBox& boxA, const cImageBox& boxB,
               const cImageBox& boxOut) {
    const cImageBox sa = SortedBox(boxA);
    ForEachLine(
        Extent(sa),
        [op](uint32_t n, float* o, const float* p, const float* q) { K::Binary(op, o, p, q, n); },
        At(out, SortedBox(boxOut)), At(a, sa), At(b, SortedBox(boxB)));
}

// Σ of a line sum over the lines of one slice or of the whole image, each line summed in float
// by the kernel and the lines added in double in the fixed order of ImageWalk's partition.
double SumLines(const cFloatImagePtr& image, K::eLineSum kind, const cFloatImagePtr& other,
                uint32_t firstSlice, uint32_t slices) {
    const cImageDimensions extent{image->GetSizeX(), image->GetSizeY(), slices};
    return ImageWalk::ReduceLines(
        extent, 0.0,
        [&](uint32_t y, uint32_t z, double& partial) {
            const float* b = other ? other->GetLinePointer(y, firstSlice + z) : nullptr;
            partial += K::LineSum(kind, image->GetLinePointer(y, firstSlice + z), b, extent.x);
        },
        [](double& total, double piece) { total += piece; });
}

double SumAll(const cFloatImagePtr& image, K::eLineSum kind, const cFloatImagePtr& other = {}) {
    return SumLines(image, kind, other, 0, image->GetSizeZ());
}

struct cExtremes {
    float low, high;
};

// Smallest and largest pixel, merged into `start`.
cExtremes ExtremesFrom(const cFloatImagePtr& image, cExtremes start) {
    return ReduceRuns(
        image->GetDimensions(), start,
        [](std::size_t n, cExtremes& partial, const float* p) {
            K::MinMax(p, n, partial.low, partial.high);
        },
        [](cExtremes& total, const cExtremes& piece) {
            total.low = piece.low < total.low ? piece.low : total.low;
            total.high = piece.high > total.high ? piece.high : total.high;
        },
        image.Get());
}

// Both starting from the first pixel of the image.
cExtremes Extremes(const cFloatImagePtr& image) {
    if (image->GetVoxelCount() == 0)
        return {kLargest, -kLargest};
    const float first = image->GetLinePointer(0, 0)[0];
    return ExtremesFrom(image, {first, first});
}

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

// Axis 1 only: slice 0 of out starts as slice 0 of in and takes the extreme of every further
// slice. The other axes leave out as it was.
void FoldSlices(const cFloatImagePtr& in, const cFloatImagePtr& out, int axis, K::eBinary op) {
    const cImageDimensions s = in->GetDimensions();
    if (axis != 1 || s.x == 0 || s.y == 0 || s.z == 0)
        return;
    ImageWalk::ForEachLine({s.x, s.y, 1}, [&](uint32_t y, uint32_t) {
        float* target = out->GetLinePointer(y, 0);
        std::memcpy(target, in->GetLinePointer(y, 0), s.x * sizeof(float));
        for (uint32_t z = 1; z < s.z; ++z)
            K::Binary(op, target, target, in->GetLinePointer(y, z), s.x);
    });
}

uint32_t WrapDistance(uint32_t i, uint32_t n) {
    return i == 0 || uint64_t{2} * i < n ? i : n - i;
}

int64_t SignedWrapDistance(uint32_t i, uint32_t n) {
    return i == 0 || uint64_t{2} * i < n ? int64_t{i} : int64_t{i} - int64_t{n};
}

// The squared lateral distances (index · step)² along an axis of n pixels.
std::vector<float> SquaredDistances(uint32_t n, float step) {
    std::vector<float> squares(n);
    for (uint32_t i = 0; i < n; ++i) {
        const float distance = static_cast<float>(WrapDistance(i, n)) * step;
        squares[i] = distance * distance;
    }
    return squares;
}

} // namespace

cImageMathHighway::cImageMathHighway(cImageMathPtr fallback)
    : cImageMathGeneric("cImageMathHighway", true), mFallback(std::move(fallback)) {}

// ---- Checks: the messages and order of the plain back end.

void cImageMathHighway::RequireBoxes(const char* operation, const cFloatImagePtr& a,
                                     const cFloatImagePtr& b, const cFloatImagePtr& out,
                                     const cImageBox& boxA, const cImageBox& boxB,
                                     const cImageBox& boxOut) const {
    RequireImages(operation, {&a, &b, &out});
    if (!a->IsRoiInside(boxA) || !b->IsRoiInside(boxB) || !out->IsRoiInside(boxOut))
        Fail(std::string("Roi out of bounds in ") + operation, OVD_ERR_PARAMETER);
    if (!SameBoxSize(boxA, boxB) || !SameBoxSize(boxA, boxOut))
        Fail(std::string("InvalidRoi size in ") + operation, OVD_ERR_PARAMETER);
}

void cImageMathHighway::RequireSlice(const char* operation, const cFloatImagePtr& image,
                                     unsigned z) const {
    RequireImages(operation, {&image});
    if (z >= image->GetSizeZ())
        Fail(std::string("Invalid Dimensions in ") + operation, OVD_ERR_PARAMETER);
}

// The vector kernels themselves cannot fail; what fails is an argument that only the vector
// form refuses. The message names the operation and the reason, after the pattern of the other
// messages; it names no library, since which one computes is this class's own affair.
void cImageMathHighway::FailVector(const char* operation, const char* reason) const {
    Fail(std::string("Vector Math Error in ") + operation + ": " + reason, OVD_ERR_PARAMETER);
}

// ---- Element-wise arithmetic. Out may be any of the inputs: a kernel reads a vector of
// pixels before it writes the same pixels.

void cImageMathHighway::AddImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                 const cFloatImagePtr& out) {
    Guard([&] {
        if (a.IsNull() || b.IsNull() || out.IsNull())
            Fail("Null image input in AddImage", OVD_ERR_PARAMETER);
        RequireSameSize("AddImage", a, b);
        RequireSameSize("AddImage", a, out);
        Binary(K::eBinary::Add, a, b, out);
    });
}

void cImageMathHighway::AddImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                    const cFloatImagePtr& out, const cImageBox& boxA,
                                    const cImageBox& boxB, const cImageBox& boxOut) {
    Guard([&] {
        RequireBoxes("AddImageRoi", a, b, out, boxA, boxB, boxOut);
        BoxBinary(K::eBinary::Add, a, b, out, boxA, boxB, boxOut);
    });
}

void cImageMathHighway::AddImageByConstant(const cFloatImagePtr& a, const float& c,
                                           const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("AddImageByConstant", {&a, &out});
        RequireSameSize("AddImageByConstant", a, out);
        Unary(K::eUnary::AddConstant, a, out, {c});
    });
}

void cImageMathHighway::SubtractImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                      const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SubtractImage", {&a, &b, &out});
        RequireSameSize("SubtractImage", a, b);
        RequireSameSize("SubtractImage", a, out);
        Binary(K::eBinary::Subtract, a, b, out);
    });
}

void cImageMathHighway::AbsoluteValueImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("AbsoluteValueImage", {&a, &out});
        RequireSameSize("AbsoluteValueImage", a, out);
        Unary(K::eUnary::Absolute, a, out);
    });
}

void cImageMathHighway::SubtractImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                         const cFloatImagePtr& out, const cImageBox& boxA,
                                         const cImageBox& boxB, const cImageBox& boxOut) {
    Guard([&] {
        RequireBoxes("SubtractImageRoi", a, b, out, boxA, boxB, boxOut);
        BoxBinary(K::eBinary::Subtract, a, b, out, boxA, boxB, boxOut);
    });
}

void cImageMathHighway::SubtractImageByConstant(const cFloatImagePtr& a, const float& c,
                                                const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SubtractImageByConstant", {&a, &out});
        RequireSameSize("SubtractImageByConstant", a, out);
        Unary(K::eUnary::SubtractConstant, a, out, {c});
    });
}

void cImageMathHighway::SubtractImageSliceByConstant(const cFloatImagePtr& image, const float& c,
                                                     const unsigned& z) {
    Guard([&] {
        RequireSlice("SubtractImageSliceByConstant", image, z);
        float* slice = image->GetSlicePointer(z);
        K::Unary(K::eUnary::SubtractConstant, slice, slice,
                 std::size_t{image->GetSizeX()} * image->GetSizeY(), {c});
    });
}

// v = p - c; mode 1 replaces v below the threshold by value, any other mode v above it. A
// replacement by the threshold itself is a clamp, which the same comparison gives.
void cImageMathHighway::SubtractImageByConstantAndThreshold(const cFloatImagePtr& image,
                                                            const float& c, const float& threshold,
                                                            const float& value, int mode) {
    Guard([&] {
        RequireImages("SubtractImageByConstantAndThreshold", {&image});
        Unary(mode == 1 ? K::eUnary::ThresholdBelow : K::eUnary::ThresholdAbove, image, image,
              {c, threshold, value});
    });
}

void cImageMathHighway::SubtractImageByConstantAndThreshold(const cFloatImagePtr& image,
                                                            const float& threshold,
                                                            const float& value, int mode) {
    SubtractImageByConstantAndThreshold(image, 0.0f, threshold, value, mode);
}

void cImageMathHighway::SubtractThresholdAndScaleImage(const cFloatImagePtr& image,
                                                       const float& c, const float& threshold,
                                                       const float& value, const float& scale) {
    Guard([&] {
        RequireImages("SubtractThresholdAndScaleImage", {&image});
        Unary(K::eUnary::ThresholdBelowScaled, image, image, {c, threshold, value, scale});
    });
}

void cImageMathHighway::MultiplyImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                      const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MultiplyImage", {&a, &b, &out});
        RequireSameSize("MultiplyImage", a, b);
        RequireSameSize("MultiplyImage", a, out);
        Binary(K::eBinary::Multiply, a, b, out);
    });
}

void cImageMathHighway::MultiplyImageRoi(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                         const cFloatImagePtr& out, const cImageBox& boxA,
                                         const cImageBox& boxB, const cImageBox& boxOut) {
    Guard([&] {
        RequireBoxes("MultiplyImageRoi", a, b, out, boxA, boxB, boxOut);
        BoxBinary(K::eBinary::Multiply, a, b, out, boxA, boxB, boxOut);
    });
}

void cImageMathHighway::MultiplyImageByConstant(const cFloatImagePtr& a, const float& c,
                                                const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MultiplyImageByConstant", {&a, &out});
        RequireSameSize("MultiplyImageByConstant", a, out);
        Unary(K::eUnary::MultiplyConstant, a, out, {c});
    });
}

void cImageMathHighway::MultiplyImageSliceByConstant(const cFloatImagePtr& image, const float& c,
                                                     const unsigned& z) {
    Guard([&] {
        RequireSlice("MultiplyImageSliceByConstant", image, z);
        float* slice = image->GetSlicePointer(z);
        K::Unary(K::eUnary::MultiplyConstant, slice, slice,
                 std::size_t{image->GetSizeX()} * image->GetSizeY(), {c});
    });
}

// With conjugate 1 the imaginary parts of b are negated in place, and stay so, before the plain
// product: a · conj(b) on the first call, a · b on a second call with the same b. Lines of an
// even width are whole pairs, so the stack or each slice goes to the kernel in one run; an odd
// width leaves the last float of every line alone, line by line.
void cImageMathHighway::MultiplyComplexImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                             const cFloatImagePtr& out, const float& scale,
                                             int conjugate) {
    Guard([&] {
        RequireImages("MultiplyComplexImage", {&a, &b, &out});
        RequireSameSize("MultiplyComplexImage", a, b);
        RequireSameSize("MultiplyComplexImage", a, out);
        const cImageDimensions& size = a->GetDimensions();
        const float s = scale;
        const auto negate = [](std::size_t n, float* q) { K::NegateImaginary(q, n / 2); };
        const auto product = [s](std::size_t n, float* o, const float* p, const float* q) {
            K::ComplexProduct(o, p, q, n / 2, s);
        };
        if (size.x % 2 == 0) {
            if (conjugate == 1)
                ForEachRun(size, negate, b.Get());
            ForEachRun(size, product, out.Get(), a.Get(), b.Get());
            return;
        }
        const cImageBox all{0, 0, 0, size.x - 1, size.y - 1, size.z - 1};
        if (conjugate == 1)
            ForEachLine(size, negate, At(b, all));
        ForEachLine(size, product, At(out, all), At(a, all), At(b, all));
    });
}

// Divisors below the guard value, negative ones too, are replaced by 1e20: such pixels come
// out near 0 with a's sign instead of 0 for b = 0 alone.
void cImageMathHighway::DivideImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                    const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("DivideImage", {&a, &b, &out});
        RequireSameSize("DivideImage", a, b);
        RequireSameSize("DivideImage", a, out);
        Binary(K::eBinary::GuardedDivide, a, b, out);
    });
}

// Threshold and value are not used: b is raised in place to at least the guard value, and the
// quotient is held at 10 before it is raised to the power.
void cImageMathHighway::PowerOfImageDivisionWithThreshold(
    const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& out,
    const float& exponent, const float& /*threshold*/, const float& /*value*/) {
    Guard([&] {
        RequireImages("PowerOfImageDivisionWithThreshold", {&a, &b, &out});
        RequireSameSize("PowerOfImageDivisionWithThreshold", a, b);
        RequireSameSize("PowerOfImageDivisionWithThreshold", a, out);
        if (exponent == 0.0f) {
            SetImageToConstant(out, 1.0f);
            return;
        }
        const float e = exponent;
        ForEachRun(
            a->GetDimensions(),
            [e](std::size_t n, float* o, const float* p, float* q) {
                K::PowerOfQuotient(o, p, q, n, e);
            },
            out.Get(), a.Get(), b.Get());
    });
}

// Values below the guard value are raised to it first, so they give 1e-10; a stays as it was
// unless it is out.
void cImageMathHighway::SquareRootImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SquareRootImage", {&a, &out});
        RequireSameSize("SquareRootImage", a, out);
        Unary(K::eUnary::GuardedSquareRoot, a, out);
    });
}

void cImageMathHighway::SquareImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("SquareImage", {&a, &out});
        RequireSameSize("SquareImage", a, out);
        Unary(K::eUnary::Square, a, out);
    });
}

// The raised values go only to the logarithm: a stays as it was.
void cImageMathHighway::LogImage(const cFloatImagePtr& a, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("LogImage", {&a, &out});
        RequireSameSize("LogImage", a, out);
        Unary(K::eUnary::GuardedLog, a, out);
    });
}

// Each update is (beta · B · S + estimate) times the slice's factor 1 / (beta · n + 1), and the
// floor of the guard value then covers every pixel, the borders of the slices included. Against
// itself (estimate = reference) the neighbour sums must come from the image as it was, so it is
// copied to work first.
void cImageMathHighway::GoodsRoughnessPenalty(const cFloatImagePtr& estimate,
                                              const cFloatImagePtr& reference,
                                              const cFloatImagePtr& work, const float& beta) {
    Guard([&] {
        RequireImages("GoodsRoughnessPenalty", {&estimate, &reference});
        RequireSameSize("GoodsRoughnessPenalty", estimate, reference);
        cFloatImagePtr source = reference;
        if (estimate.Get() == reference.Get()) {
            RequireImages("GoodsRoughnessPenalty", {&work});
            RequireSameSize("GoodsRoughnessPenalty", estimate, work);
            CopyImage(reference, work);
            source = work;
        }
        const cImageDimensions size = estimate->GetDimensions();
        const float inPlane = 1.0f / (beta * 4.0f + 1.0f);
        const float inVolume = 1.0f / (beta * 6.0f + 1.0f);
        const float b = beta;
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            float* e = estimate->GetLinePointer(y, z);
            if (y == 0 || y + 1 >= size.y) {
                K::FloorAtGuard(e, size.x);
                return;
            }
            const float* r = source->GetLinePointer(y, z);
            const float* above = source->GetLinePointer(y - 1, z);
            const float* below = source->GetLinePointer(y + 1, z);
            if (z == 0 || z + 1 == size.z) {
                K::RoughnessLine(e, r, above, below, nullptr, nullptr, size.x, b, inPlane);
                return;
            }
            K::RoughnessLine(e, r, above, below, source->GetLinePointer(y, z + 1),
                             source->GetLinePointer(y, z - 1), size.x, b, inVolume);
        });
    });
}

// ---- Reductions and searches

float cImageMathHighway::FindMinimumValue(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("FindMinimumValue", {&image});
        return Extremes(image).low;
    });
}

float cImageMathHighway::FindMaximumValue(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("FindMaximumValue", {&image});
        return Extremes(image).high;
    });
}

// Both extremes in one pass, from the same start as the plain search, so NaN pixels are
// passed over alike.
void cImageMathHighway::FindMinimumAndMaximumValue(const cFloatImagePtr& image, float& minimum,
                                                   float& maximum) {
    Guard([&] {
        RequireImages("FindMinimumAndMaximumValue", {&image});
        const cExtremes range = ExtremesFrom(image, {kLargest, -kLargest});
        minimum = range.low;
        maximum = range.high;
    });
}

// A closed range: a pixel equal to high counts. low above high is refused.
unsigned cImageMathHighway::CountPixelInRange(const cFloatImagePtr& image, const float& low,
                                              const float& high) {
    return Guard([&] {
        RequireImages("CountPixelInRange", {&image});
        if (low > high)
            FailVector("CountPixelInRange", "the low end of the range lies above its high end");
        const float lo = low, hi = high;
        const uint64_t count = ReduceRuns(
            image->GetDimensions(), uint64_t{0},
            [lo, hi](std::size_t n, uint64_t& partial, const float* p) {
                partial += K::CountClosedRange(p, n, lo, hi);
            },
            [](uint64_t& total, uint64_t piece) { total += piece; }, image.Get());
        return static_cast<unsigned>(count);
    });
}

// The same counts as the plain form. Most pixels of a restored stack lie above every limit:
// they are counted by the vector compare, and only those below the top limit are looked up.
void cImageMathHighway::CountPixelsBelowLimits(const cFloatImagePtr& image,
                                               const std::vector<float>& limits,
                                               std::vector<uint64_t>& counts) {
    Guard([&] {
        if (!RequireLimitCounts(image, limits, counts))
            return;
        const cLimitCells cells(limits);
        const float top = limits.back();
        const std::vector<uint64_t> found = ReduceRuns(
            image->GetDimensions(), std::vector<uint64_t>(limits.size(), 0),
            [&](std::size_t n, std::vector<uint64_t>& partial, const float* p) {
                constexpr std::size_t kChunk = 1024;
                float below[kChunk + K::kSplitSlack];
                // Four sets of bins in turn: neighbouring pixels tend to share a bin, and the
                // increments of one set would each wait for the one before.
                constexpr std::size_t kSets = 4, kBins = 256;
                uint64_t sets[kSets][kBins];
                const bool inSets = limits.size() <= kBins;
                if (inSets)
                    for (auto& set : sets)
                        std::fill_n(set, limits.size(), uint64_t{0});
                for (std::size_t at = 0; at < n; at += kChunk) {
                    const std::size_t m =
                        K::SplitBelow(p + at, std::min(kChunk, n - at), top, below);
                    std::size_t i = 0;
                    if (inSets)
                        for (; i + kSets <= m; i += kSets)
                            for (std::size_t s = 0; s < kSets; ++s)
                                ++sets[s][cells.Bin(below[i + s])];
                    for (; i < m; ++i)
                        ++partial[cells.Bin(below[i])];
                }
                if (inSets)
                    for (std::size_t k = 0; k < limits.size(); ++k)
                        for (std::size_t s = 0; s < kSets; ++s)
                            partial[k] += sets[s][k];
            },
            [](std::vector<uint64_t>& total, const std::vector<uint64_t>& piece) {
                for (std::size_t k = 0; k < total.size(); ++k)
                    total[k] += piece[k];
            },
            image.Get());
        for (std::size_t k = 0; k < counts.size(); ++k)
            counts[k] += found[k];
    });
}

// Each slice answers one position of its largest value, the first in line order; only slices
// whose largest value is the image's maximum add theirs to the corners. So several maxima in
// one slice count as one.
void cImageMathHighway::FindMaxMinPositionOfMaximumValue(const cFloatImagePtr& image,
                                                         cImagePosition& upper,
                                                         cImagePosition& lower) {
    Guard([&] {
        RequireImages("FindMaxMinPositionOfMaximumValue", {&image});
        const cImageDimensions size = image->GetDimensions();
        const std::size_t plane = std::size_t{size.x} * size.y;
        if (plane == 0 || size.z == 0)
            return;
        const float largest = Extremes(image).high;
        std::vector<std::size_t> found(size.z, plane);
        ImageWalk::ForEachSlice(size, [&](uint32_t z) {
            const float* p = image->GetSlicePointer(z);
            float low = p[0], high = p[0];
            K::MinMax(p, plane, low, high);
            if (high == largest)
                found[z] = K::FindFirst(p, plane, largest);
        });
        bool any = false;
        for (uint32_t z = 0; z < size.z; ++z) {
            if (found[z] >= plane)
                continue;
            const cImagePosition at{static_cast<uint32_t>(found[z] % size.x),
                                    static_cast<uint32_t>(found[z] / size.x), z};
            if (!any) {
                lower = upper = at;
                any = true;
                continue;
            }
            lower = {std::min(lower.x, at.x), std::min(lower.y, at.y), std::min(lower.z, at.z)};
            upper = {std::max(upper.x, at.x), std::max(upper.y, at.y), std::max(upper.z, at.z)};
        }
    });
}

// A pixel whose ratio falls below the guard value counts with the ratio raised to it, so it
// adds data · ln(1e-20) - d instead of nothing. The ratio is d / blurred + 1. work is checked
// as every back end checks it, but the kernel forms a line at a time in registers and needs
// no room of its own.
float cImageMathHighway::ComputeLogLikelihoodIncreaseByLineSearch(
    const cFloatImagePtr& data, const cFloatImagePtr& blurred, const cFloatImagePtr& direction,
    const cFloatImagePtr& work, const float& step, unsigned x0, unsigned xMargin, unsigned y0,
    unsigned yMargin, unsigned z0, unsigned zMargin) {
    return Guard([&] {
        RequireLineSearchImages(data, blurred, direction, work);
        const cImageDimensions& size = data->GetDimensions();
        const auto inner = [](uint32_t n, uint32_t first, uint32_t margin) {
            return first + margin >= n ? 0u : n - margin - first;
        };
        const cImageDimensions region{inner(size.x, x0, xMargin), inner(size.y, y0, yMargin),
                                      inner(size.z, z0, zMargin)};
        const float t = step;
        return ImageWalk::ReduceLines(
            region, 0.0f,
            [&](uint32_t y, uint32_t z, float& sum) {
                sum += K::LogLikelihoodGain(data->GetLinePointer(y0 + y, z0 + z) + x0,
                                            blurred->GetLinePointer(y0 + y, z0 + z) + x0,
                                            direction->GetLinePointer(y0 + y, z0 + z) + x0, t,
                                            region.x);
            },
            [](float& total, float piece) { total += piece; });
    });
}

double cImageMathHighway::SumImage(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("SumImage", {&image});
        return SumAll(image, K::eLineSum::Sum);
    });
}

double cImageMathHighway::SumImageSquared(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("SumImageSquared", {&image});
        return SumAll(image, K::eLineSum::Squares);
    });
}

// A dot product per line; the lines are added in double as in the other sums.
float cImageMathHighway::SumOfImageProduct(const cFloatImagePtr& a, const cFloatImagePtr& b) {
    return Guard([&] {
        RequireImages("SumOfImageProduct", {&a, &b});
        RequireSameSize("SumOfImageProduct", a, b);
        return static_cast<float>(SumAll(a, K::eLineSum::Product, b));
    });
}

double cImageMathHighway::AbsoluteSumImage(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("AbsoluteSumImage", {&image});
        return SumAll(image, K::eLineSum::Absolute);
    });
}

// Each line in double, as the plain back end sums it; only the order of the additions
// within a line differs.
double cImageMathHighway::SumNormalizedImage(const cFloatImagePtr& image, float low, float high) {
    return Guard([&] {
        RequireImages("SumNormalizedImage", {&image});
        const float range = high - low;
        return ImageWalk::ReduceLines(
            image->GetDimensions(), 0.0,
            [&](uint32_t y, uint32_t z, double& partial) {
                partial += K::NormalizedLineSum(image->GetLinePointer(y, z), image->GetSizeX(),
                                                low, range);
            },
            [](double& total, double piece) { total += piece; });
    });
}

double cImageMathHighway::SumImageSlice(const cFloatImagePtr& image, const unsigned& z) {
    return Guard([&] {
        RequireSlice("SumImageSlice", image, z);
        return SumLines(image, K::eLineSum::Sum, {}, z, 1);
    });
}

// The mean from the sums of the lines, added in double.
float cImageMathHighway::AverageImage(const cFloatImagePtr& image) {
    return Guard([&] {
        RequireImages("AverageImage", {&image});
        return static_cast<float>(SumAll(image, K::eLineSum::Sum) /
                                  static_cast<double>(image->GetVoxelCount()));
    });
}

// ---- Non-negativity: the plain forms, whole, with their plain inner steps (a count that
// leaves out the high end of its range among them).

void cImageMathHighway::NonNegativityCompression(const cFloatImagePtr& a, float originalSum,
                                                 const cFloatImagePtr& out) {
    mFallback->NonNegativityCompression(a, originalSum, out);
}

void cImageMathHighway::NonNegativityCompressionInverted(const cFloatImagePtr& a,
                                                         const cFloatImagePtr& out,
                                                         float* pedestal) {
    mFallback->NonNegativityCompressionInverted(a, out, pedestal);
}

// ---- Projections and extremes

void cImageMathHighway::MinimumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                          int axis) {
    Guard([&] {
        RequireImages("MinimumProjection", {&in, &out});
        if (!FitsFold(in->GetDimensions(), out->GetDimensions(), axis))
            Fail("Invalid Dimensions in MinimumProjection", OVD_ERR_PARAMETER);
        FoldSlices(in, out, axis, K::eBinary::Minimum);
    });
}

void cImageMathHighway::MinimumImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                     const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MinimumImage", {&a, &b, &out});
        RequireSameSize("MinimumImage", a, b);
        RequireSameSize("MinimumImage", a, out);
        Binary(K::eBinary::Minimum, a, b, out);
    });
}

void cImageMathHighway::MaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                          int axis) {
    Guard([&] {
        RequireImages("MaximumProjection", {&in, &out});
        if (!FitsFold(in->GetDimensions(), out->GetDimensions(), axis))
            Fail("Invalid Dimensions in MaximumProjection", OVD_ERR_PARAMETER);
        FoldSlices(in, out, axis, K::eBinary::Maximum);
    });
}

// Axis 1 adds the slices into slice 0 of out one after another, as the plain back end does:
// the same float sums. The other axes, and whatever the plain form refuses, go to it.
void cImageMathHighway::SumProjection(const cFloatImagePtr& in, const cFloatImagePtr& out,
                                      int axis, int firstSlice, int lastSlice) {
    const int64_t depth = in.IsNull() ? 0 : int64_t{in->GetSizeZ()};
    const int64_t first = firstSlice == -1 ? 0 : firstSlice;
    const int64_t last = lastSlice == -1 ? depth - 1 : lastSlice;
    if (axis != 1 || in.IsNull() || out.IsNull() ||
        !FitsFold(in->GetDimensions(), out->GetDimensions(), axis) || first < 0 ||
        last >= depth || first > last) {
        mFallback->SumProjection(in, out, axis, firstSlice, lastSlice);
        return;
    }
    Guard([&] {
        const cImageDimensions s = in->GetDimensions();
        SetImageToConstant(out, 0.0f);
        cWorkerPool::ForEach(s.y, ImageWalk::ThreadsFor(s.Voxels()), [&](int64_t y, int) {
            float* target = out->GetLinePointer(static_cast<uint32_t>(y), 0);
            for (int64_t z = first; z <= last; ++z)
                K::Binary(K::eBinary::Add, target, target,
                          in->GetLinePointer(static_cast<uint32_t>(y), static_cast<uint32_t>(z)),
                          s.x);
        });
    });
}

void cImageMathHighway::MaximumImage(const cFloatImagePtr& a, const cFloatImagePtr& b,
                                     const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("MaximumImage", {&a, &b, &out});
        RequireSameSize("MaximumImage", a, b);
        RequireSameSize("MaximumImage", a, out);
        Binary(K::eBinary::Maximum, a, b, out);
    });
}

// xy and xz start at 0 and take element-wise maxima of the lines; zy(z, y) is the largest
// value of line (y, z) itself, so it is negative where the whole line is.
void cImageMathHighway::TripleMaximumProjection(const cFloatImagePtr& in, const cFloatImagePtr& xy,
                                                const cFloatImagePtr& xz,
                                                const cFloatImagePtr& zy) {
    Guard([&] {
        RequireImages("TripleMaximumProjection", {&in, &xy, &xz, &zy});
        const cImageDimensions s = in->GetDimensions();
        if (!FitsFold(s, xy->GetDimensions(), 1) || !FitsFold(s, xz->GetDimensions(), 2) ||
            !FitsFold(s, zy->GetDimensions(), 3))
            Fail("Invalid Dimensions in TripleMaximumProjection", OVD_ERR_PARAMETER);
        SetImageToConstant(xy, 0.0f);
        SetImageToConstant(xz, 0.0f);
        SetImageToConstant(zy, 0.0f);
        if (s.x == 0 || s.y == 0 || s.z == 0)
            return;
        const auto fold = [&](uint32_t lines, const auto& body) {
            cWorkerPool::ForEach(lines, ImageWalk::ThreadsFor(s.Voxels()),
                                 [&](int64_t l, int) { body(static_cast<uint32_t>(l)); });
        };
        fold(s.y, [&](uint32_t y) {
            float* target = xy->GetLinePointer(y, 0);
            for (uint32_t z = 0; z < s.z; ++z)
                K::Binary(K::eBinary::Maximum, target, target, in->GetLinePointer(y, z), s.x);
        });
        fold(s.z, [&](uint32_t z) {
            float* target = xz->GetLinePointer(z, 0);
            for (uint32_t y = 0; y < s.y; ++y)
                K::Binary(K::eBinary::Maximum, target, target, in->GetLinePointer(y, z), s.x);
        });
        ImageWalk::ForEachLine(s, [&](uint32_t y, uint32_t z) {
            const float* p = in->GetLinePointer(y, z);
            float low = p[0], high = p[0];
            K::MinMax(p, s.x, low, high);
            zy->GetLinePointer(y, 0)[z] = high;
        });
    });
}

// ---- Shape generators

// The exponents of a line are laid down first and raised to e in one kernel call; the sum of 1
// then comes from NormalizeImage over all slices, so no peak factor is needed.
void cImageMathHighway::Generate3DGaussian(const cFloatImagePtr& image, float dx, float dy,
                                           float dz, float fwhmX, float fwhmY, float fwhmZ) {
    Guard([&] {
        RequireImages("Generate3DGaussian", {&image});
        const cImageDimensions size = image->GetDimensions();
        if (size.Voxels() == 0)
            return;
        constexpr double kFwhmPerSigma = 2.35457;
        const float sigmaX = static_cast<float>(fwhmX / kFwhmPerSigma);
        const float sigmaY = static_cast<float>(fwhmY / kFwhmPerSigma);
        const float sigmaZ = static_cast<float>(fwhmZ / kFwhmPerSigma);
        std::vector<float> termX(size.x);
        for (uint32_t x = 0; x < size.x; ++x) {
            const float u = static_cast<float>(SignedWrapDistance(x, size.x)) * dx;
            termX[x] = (u * u) / (2.0f * sigmaX * sigmaX);
        }
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            float* line = image->GetLinePointer(y, z);
            const float v = static_cast<float>(SignedWrapDistance(y, size.y)) * dy;
            const float w = static_cast<float>(SignedWrapDistance(z, size.z)) * dz;
            const float termYZ = (v * v) / (2.0f * sigmaY * sigmaY);
            const float termZ = (w * w) / (2.0f * sigmaZ * sigmaZ);
            for (uint32_t x = 0; x < size.x; ++x)
                line[x] = -(termX[x] + termYZ + termZ);
            K::Unary(K::eUnary::Exp, line, line, size.x, {});
        });
        NormalizeImage(image, image, 0u, size.z - 1, 1.0f);
    });
}

// r² is laid down in slice 0 once; every other slice is 0 where r² > (a · slope + radius)² and
// 1 elsewhere, taken from slice 0, which is finished last, in place.
void cImageMathHighway::Generate3DHourglass(const cFloatImagePtr& image, float dx, float dy,
                                            float dz, float slope, float radius) {
    Guard([&] {
        RequireImages("Generate3DHourglass", {&image});
        const cImageDimensions size = image->GetDimensions();
        const std::size_t plane = std::size_t{size.x} * size.y;
        if (plane == 0 || size.z == 0)
            return;
        const std::vector<float> squaresX = SquaredDistances(size.x, dx);
        const std::vector<float> squaresY = SquaredDistances(size.y, dy);
        for (uint32_t y = 0; y < size.y; ++y)
            K::Unary(K::eUnary::AddConstant, image->GetLinePointer(y, 0), squaresX.data(), size.x,
                     {squaresY[y]});
        const float* radii = image->GetSlicePointer(0);
        const auto limit = [&](uint32_t z) {
            const float reach = static_cast<float>(WrapDistance(z, size.z)) * dz * slope + radius;
            return reach * reach;
        };
        ImageWalk::ForEachSlice({size.x, size.y, size.z - 1}, [&](uint32_t k) {
            K::Unary(K::eUnary::ZeroAboveElseOne, image->GetSlicePointer(k + 1), radii, plane,
                     {0.0f, limit(k + 1)});
        });
        K::Unary(K::eUnary::ZeroAboveElseOne, image->GetSlicePointer(0), radii, plane,
                 {0.0f, limit(0)});
    });
}

// Mode 2 clears, in the slices with a ≤ minimumZ, the pixels with r² > (a · slope)²; any other
// mode sets, in the slices with a > minimumZ, the pixels with r² < (a · slope)² + 1e-6 to
// value. All other pixels keep their values.
void cImageMathHighway::CreateDoubleTruncatedCone(const cFloatImagePtr& image, float dx, float dy,
                                                  float dz, float minimumZ, float slope,
                                                  float value, int mode) {
    Guard([&] {
        RequireImages("CreateDoubleTruncatedCone", {&image});
        const cImageDimensions size = image->GetDimensions();
        const std::vector<float> squaresX = SquaredDistances(size.x, dx);
        const std::vector<float> squaresY = SquaredDistances(size.y, dy);
        const bool clear = mode == 2;
        ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
            const float a = static_cast<float>(WrapDistance(z, size.z)) * dz;
            if (clear == (a > minimumZ))
                return;
            const float reach = a * slope;
            float* line = image->GetLinePointer(y, z);
            if (clear)
                K::SetWhere(line, squaresX.data(), squaresY[y], size.x, reach * reach, false, 0.0f);
            else
                K::SetWhere(line, squaresX.data(), squaresY[y], size.x, reach * reach + 1e-6f, true,
                            value);
        });
    });
}

// ---- Filling and copying

void cImageMathHighway::SetImageToConstant(const cFloatImagePtr& image, float value) {
    Guard([&] {
        RequireImages("SetImageToConstant", {&image});
        ForEachRun(
            image->GetDimensions(), [value](std::size_t n, float* p) { std::fill_n(p, n, value); },
            image.Get());
    });
}

void cImageMathHighway::SetRoiToConstant(const cFloatImagePtr& image, const cImageBox& box,
                                         float value) {
    Guard([&] {
        RequireImages("SetRoiToConstant", {&image});
        if (!image->IsRoiInside(box))
            Fail("Roi out of bounds in SetRoiToConstant", OVD_ERR_PARAMETER);
        const cImageBox sorted = SortedBox(box);
        ForEachLine(
            Extent(sorted), [value](uint32_t n, float* p) { std::fill_n(p, n, value); },
            At(image, sorted));
    });
}

// Equal sizes copy the stack, the slices or the lines, as the layouts allow. A wider out takes
// each line of in with a zeroed tail; when both hold their stack in one block, values of in
// below the guard value are stored as 0 on the way. A narrower out takes its own width of each
// line. Equal widths with other differences copy nothing.
void cImageMathHighway::CopyImage(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("CopyImage", {&in, &out});
        const cImageDimensions& from = in->GetDimensions();
        const cImageDimensions& to = out->GetDimensions();
        if (from == to) {
            if (in.Get() != out.Get())
                ForEachRun(
                    from,
                    [](std::size_t n, float* o, const float* p) {
                        std::memcpy(o, p, n * sizeof(float));
                    },
                    out.Get(), in.Get());
            return;
        }
        if (from.x == to.x)
            return;
        const uint32_t common = std::min(from.x, to.x);
        const bool zeroSmall = to.x > from.x && in->IsContiguous3D() && out->IsContiguous3D();
        const cImageBox origin{};
        ForEachLine(
            {to.x, std::min(from.y, to.y), std::min(from.z, to.z)},
            [&](uint32_t n, float* o, const float* p) {
                if (zeroSmall)
                    K::Unary(K::eUnary::CopyZeroBelowGuard, o, p, common, {});
                else
                    std::memcpy(o, p, common * sizeof(float));
                std::fill(o + common, o + n, 0.0f);
            },
            At(out, origin), At(in, origin));
    });
}

// out's lines take (re, im) pairs; a missing part is 0.
void cImageMathHighway::CopyImageRealToComplex(const cFloatImagePtr& re, const cFloatImagePtr& im,
                                               const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("CopyImageRealToComplex", {&out});
        const cImageDimensions& size = out->GetDimensions();
        if (!FitsInterleaved(re, size) || !FitsInterleaved(im, size))
            Fail("Invalid Dimensions in CopyImageRealToComplex", OVD_ERR_PARAMETER);
        ImageWalk::ForEachLine(
            {size.x, size.y, InterleavedDepth(size, re, im)}, [&](uint32_t y, uint32_t z) {
                K::Interleave(out->GetLinePointer(y, z), re ? re->GetLinePointer(y, z) : nullptr,
                              im ? im->GetLinePointer(y, z) : nullptr, size.x / 2);
            });
    });
}

// Splits the pairs of in, each value times scale; a missing output is not produced.
void cImageMathHighway::CopyImageComplexToReal(const cFloatImagePtr& in, const cFloatImagePtr& re,
                                               const cFloatImagePtr& im, const float& scale) {
    Guard([&] {
        RequireImages("CopyImageComplexToReal", {&in});
        const cImageDimensions& size = in->GetDimensions();
        if (!FitsInterleaved(re, size) || !FitsInterleaved(im, size))
            Fail("Invalid Dimensions in CopyImageComplexToReal", OVD_ERR_PARAMETER);
        ImageWalk::ForEachLine(
            {size.x, size.y, InterleavedDepth(size, re, im)}, [&](uint32_t y, uint32_t z) {
                K::Deinterleave(in->GetLinePointer(y, z), re ? re->GetLinePointer(y, z) : nullptr,
                                im ? im->GetLinePointer(y, z) : nullptr, size.x / 2, scale);
            });
    });
}

// ---- Conversions. Float to 16 bits halves and saturates to the signed range, float to 8 bits
// saturates to 0 … 255, both rounding to nearest; NaN gives 0.

void cImageMathHighway::ConvertRealtoShort(const cFloatImagePtr& in, const cShortImagePtr& out) {
    Guard([&] {
        if (in.IsNull() || out.IsNull())
            Fail("NULL input image in ConvertRealtoShort", OVD_ERR_PARAMETER);
        if (!(in->GetDimensions() == out->GetDimensions()))
            Fail("Invalid Dimensions in ConvertRealtoShort", OVD_ERR_PARAMETER);
        ForEachRun(
            in->GetDimensions(),
            [](std::size_t n, uint16_t* o, const float* p) { K::FloatToHalvedShort(o, p, n); },
            out.Get(), in.Get());
    });
}

void cImageMathHighway::ConvertRealtoByteRoi(const cFloatImagePtr& in, const cByteImagePtr& out,
                                             const cCountedBox& boxIn, const cCountedBox& boxOut) {
    Guard([&] {
        if (in.IsNull() || out.IsNull() || boxIn.IsNull() || boxOut.IsNull())
            Fail("NULL input image in ConvertRealtoByteRoi", OVD_ERR_PARAMETER);
        if (!in->IsRoiInside(*boxIn) || !out->IsRoiInside(*boxOut))
            Fail("Roi out of bounds in ConvertRealtoByteRoi", OVD_ERR_PARAMETER);
        if (!SameBoxSize(*boxIn, *boxOut))
            Fail("InvalidRoi size in ConvertRealtoByteRoi", OVD_ERR_PARAMETER);
        const cImageBox from = SortedBox(*boxIn);
        ForEachLine(
            Extent(from),
            [](uint32_t n, uint8_t* o, const float* p) { K::FloatToSaturatedByte(o, p, n); },
            At(out, SortedBox(*boxOut)), At(in, from));
    });
}

void cImageMathHighway::ConvertRealtoShortRoi(const cFloatImagePtr& in, const cShortImagePtr& out,
                                              const cCountedBox& boxIn, const cCountedBox& boxOut) {
    Guard([&] {
        if (in.IsNull() || out.IsNull() || boxIn.IsNull() || boxOut.IsNull())
            Fail("NULL input image in ConvertRealtoShortRoi", OVD_ERR_PARAMETER);
        if (!in->IsRoiInside(*boxIn) || !out->IsRoiInside(*boxOut))
            Fail("Roi out of bounds in ConvertRealtoShortRoi", OVD_ERR_PARAMETER);
        if (!SameBoxSize(*boxIn, *boxOut))
            Fail("InvalidRoi size in ConvertRealtoShortRoi", OVD_ERR_PARAMETER);
        const cImageBox from = SortedBox(*boxIn);
        ForEachLine(
            Extent(from),
            [](uint32_t n, uint16_t* o, const float* p) { K::FloatToHalvedShort(o, p, n); },
            At(out, SortedBox(*boxOut)), At(in, from));
    });
}

void cImageMathHighway::ConvertUnsignedByteToReal(const uint8_t* source, float* target,
                                                  const int& count) {
    if (count > 0)
        K::ByteToFloat(target, source, static_cast<std::size_t>(count));
}

void cImageMathHighway::ConvertUnsignedByteToReal(const cByteImagePtr& in,
                                                  const cFloatImagePtr& out) {
    Guard([&] {
        if (in.IsNull() || out.IsNull())
            Fail("NULL input image in ConvertUnsignedByteToReal", OVD_ERR_PARAMETER);
        if (!(in->GetDimensions() == out->GetDimensions()))
            Fail("Invalid Dimensions in ConvertUnsignedByteToReal", OVD_ERR_PARAMETER);
        ForEachRun(
            in->GetDimensions(),
            [](std::size_t n, float* o, const uint8_t* p) { K::ByteToFloat(o, p, n); }, out.Get(),
            in.Get());
    });
}

void cImageMathHighway::ConvertUnsignedShortToReal(const uint16_t* source, float* target,
                                                   const int& count) {
    if (count > 0)
        K::ShortToFloat(target, source, static_cast<std::size_t>(count));
}

void cImageMathHighway::ConvertUnsignedShortToReal(const cShortImagePtr& in,
                                                   const cFloatImagePtr& out) {
    Guard([&] {
        if (in.IsNull() || out.IsNull())
            Fail("NULL input image in ConvertUnsignedShortToReal", OVD_ERR_PARAMETER);
        if (!(in->GetDimensions() == out->GetDimensions()))
            Fail("Invalid Dimensions in ConvertUnsignedShortToReal", OVD_ERR_PARAMETER);
        ForEachRun(
            in->GetDimensions(),
            [](std::size_t n, float* o, const uint16_t* p) { K::ShortToFloat(o, p, n); }, out.Get(),
            in.Get());
    });
}

// Fills the 4-connected region of slice 0 round the seed whose pixels equal the seed's value,
// and answers 0. The pixels still to visit wait on a stack of their own, so a region of any
// shape costs no recursion.
int cImageMathHighway::FloodFillImage(const cFloatImagePtr& image, int /*unused*/, int seedX,
                                      int seedY, float value) {
    return Guard([&] {
        RequireImages("FloodFillImage", {&image});
        const cImageDimensions& size = image->GetDimensions();
        if (seedX < 0 || seedY < 0 || uint32_t(seedX) >= size.x || uint32_t(seedY) >= size.y ||
            size.z == 0)
            FailVector("FloodFillImage", "the seed lies outside the image");
        float* slice = image->GetSlicePointer(0);
        const std::size_t width = size.x;
        const std::size_t seed = std::size_t(seedY) * width + std::size_t(seedX);
        const float old = slice[seed];
        if (old == value || old != old)
            return 0;
        std::vector<std::size_t> pending{seed};
        slice[seed] = value;
        while (!pending.empty()) {
            const std::size_t at = pending.back();
            pending.pop_back();
            const std::size_t x = at % width, y = at / width;
            const auto visit = [&](std::size_t next) {
                if (slice[next] == old) {
                    slice[next] = value;
                    pending.push_back(next);
                }
            };
            if (x > 0)
                visit(at - 1);
            if (x + 1 < width)
                visit(at + 1);
            if (y > 0)
                visit(at - width);
            if (y + 1 < size.y)
                visit(at + width);
        }
        return 0;
    });
}

// The transpose moves pairs of pixels: a slice of in is read as y size rows of x size / 2
// pairs, and out's slice, of the same number of pixels, takes them as x size / 2 rows of y size
// pairs. So pair i of row j goes to pair j of row i; an odd last column of in is left out.
void cImageMathHighway::TransposeImage(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] {
        RequireImages("TransposeImage", {&in, &out});
        const cImageDimensions& size = in->GetDimensions();
        const cImageDimensions& outSize = out->GetDimensions();
        if (outSize.x != size.y || outSize.y != size.x || outSize.z != size.z)
            Fail("Invalid Dimensions in TransposeImage", OVD_ERR_PARAMETER);
        const std::size_t plane = std::size_t{size.x} * size.y;
        const uint32_t columns = size.x / 2, rows = size.y;
        // Against itself the slice is read from a copy.
        std::vector<float> copy(in.Get() == out.Get() ? plane : 0);
        for (uint32_t z = 0; z < size.z; ++z) {
            const float* from = in->GetSlicePointer(z);
            if (!copy.empty())
                from = static_cast<const float*>(
                    std::memcpy(copy.data(), from, plane * sizeof(float)));
            float* to = out->GetSlicePointer(z);
            for (uint32_t j = 0; j < rows; ++j)
                for (uint32_t i = 0; i < columns; ++i) {
                    const std::size_t source = std::size_t{j} * size.x + 2 * i;
                    const std::size_t target = (std::size_t{i} * rows + j) * 2;
                    to[target] = from[source];
                    to[target + 1] = from[source + 1];
                }
        }
    });
}

} // namespace Ovidane
