// The vector kernels, compiled once for every instruction set that Highway targets on this
// architecture; this file includes itself through foreach_target.h once per target, and the
// HWY_ONCE part at the end holds the entry points that pick a target at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "math/HighwayKernels.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/contrib/math/math-inl.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "math/HighwayKernels.h"

HWY_BEFORE_NAMESPACE();
namespace Ovidane::HighwayKernels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// At most sixteen lanes, so that the sixteen accumulators of a line sum are whole vectors on
// every target.
using D = hn::CappedTag<float, 16>;
using V = hn::Vec<D>;
constexpr std::size_t kAccumulators = 16;

// Calls store(i, count) for each vector of a run of n pixels: count is the vector's length,
// except for the last, shorter vector of a run that isn't a multiple of it. The kernels load a
// short vector through Partial, from a zeroed copy, so that nothing is read past a run's end.
template <class Body> HWY_INLINE void ForEachVector(std::size_t n, Body&& body) {
    const D d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= n; i += lanes)
        body(i, lanes);
    if (i < n)
        body(i, n - i);
}

// A vector of `count` pixels from p, the lanes beyond filled with `pad`.
HWY_INLINE V Load(const float* p, std::size_t count, float pad = 0.0f) {
    const D d;
    if (count == hn::Lanes(d))
        return hn::LoadU(d, p);
    HWY_ALIGN float buffer[kAccumulators];
    std::fill_n(buffer, kAccumulators, pad);
    std::copy_n(p, count, buffer);
    return hn::Load(d, buffer);
}

HWY_INLINE void Store(V v, float* p, std::size_t count) {
    const D d;
    if (count == hn::Lanes(d)) {
        hn::StoreU(v, d, p);
        return;
    }
    HWY_ALIGN float buffer[kAccumulators];
    hn::Store(v, d, buffer);
    std::copy_n(buffer, count, p);
}

// Raises every lane below the guard value (negative ones and -0 too) to it; NaN stays.
HWY_INLINE V RaiseToGuard(V v) {
    const D d;
    const V guard = hn::Set(d, kGuard);
    return hn::IfThenElse(v < guard, guard, v);
}

void BinaryKernel(eBinary op, float* out, const float* a, const float* b, std::size_t n) {
    const D d;
    const auto run = [&](auto rule) {
        ForEachVector(n, [&](std::size_t i, std::size_t count) {
            Store(rule(Load(a + i, count), Load(b + i, count, 1.0f)), out + i, count);
        });
    };
    switch (op) {
    case eBinary::Add:
        return run([](V p, V q) { return hn::Add(p, q); });
    case eBinary::Subtract:
        return run([](V p, V q) { return hn::Sub(p, q); });
    case eBinary::Multiply:
        return run([](V p, V q) { return hn::Mul(p, q); });
    // The comparisons of the plain back end: q replaces p only when it is strictly smaller
    // (larger), so a NaN in b keeps a's pixel.
    case eBinary::Minimum:
        return run([](V p, V q) { return hn::IfThenElse(q < p, q, p); });
    case eBinary::Maximum:
        return run([](V p, V q) { return hn::IfThenElse(q > p, q, p); });
    case eBinary::GuardedDivide: {
        const V guard = hn::Set(d, kGuard), replacement = hn::Set(d, kGuardReciprocal);
        return run([&](V p, V q) { return hn::Div(p, hn::IfThenElse(q < guard, replacement, q)); });
    }
    }
}

void UnaryKernel(eUnary op, float* out, const float* a, std::size_t n,
                 const cUnaryArguments& arguments) {
    const D d;
    const V c = hn::Set(d, arguments.c), threshold = hn::Set(d, arguments.threshold),
            value = hn::Set(d, arguments.value), scale = hn::Set(d, arguments.scale),
            guard = hn::Set(d, kGuard);
    const auto run = [&](auto rule) {
        ForEachVector(n, [&](std::size_t i, std::size_t count) {
            Store(rule(Load(a + i, count)), out + i, count);
        });
    };
    switch (op) {
    case eUnary::AddConstant:
        return run([&](V p) { return hn::Add(p, c); });
    case eUnary::SubtractConstant:
        return run([&](V p) { return hn::Sub(p, c); });
    case eUnary::MultiplyConstant:
        return run([&](V p) { return hn::Mul(p, c); });
    case eUnary::Absolute:
        return run([](V p) { return hn::Abs(p); });
    case eUnary::Square:
        return run([](V p) { return hn::Mul(p, p); });
    case eUnary::GuardedSquareRoot:
        return run([](V p) { return hn::Sqrt(RaiseToGuard(p)); });
    case eUnary::GuardedLog:
        return run([&](V p) { return hn::Log(d, RaiseToGuard(p)); });
    case eUnary::ThresholdBelow:
        return run([&](V p) {
            const V v = hn::Sub(p, c);
            return hn::IfThenElse(v < threshold, value, v);
        });
    case eUnary::ThresholdBelowScaled:
        return run([&](V p) {
            const V v = hn::Sub(p, c);
            return hn::Mul(hn::IfThenElse(v < threshold, value, v), scale);
        });
    case eUnary::ThresholdAbove:
        return run([&](V p) {
            const V v = hn::Sub(p, c);
            return hn::IfThenElse(v > threshold, value, v);
        });
    case eUnary::CopyZeroBelowGuard:
        return run([&](V p) { return hn::IfThenZeroElse(p < guard, p); });
    case eUnary::Exp:
        return run([&](V p) { return hn::Exp(d, p); });
    case eUnary::ZeroAboveElseOne:
        return run([&](V p) { return hn::IfThenZeroElse(p > threshold, hn::Set(d, 1.0f)); });
    }
}

void PowerOfQuotientKernel(float* out, const float* a, float* b, std::size_t n, float exponent) {
    const D d;
    const V e = hn::Set(d, exponent), limit = hn::Set(d, 10.0f), zero = hn::Zero(d);
    ForEachVector(n, [&](std::size_t i, std::size_t count) {
        const V q = RaiseToGuard(Load(b + i, count, 1.0f));
        Store(q, b + i, count);
        const V quotient = hn::Min(hn::Div(Load(a + i, count), q), limit);
        const V positive = hn::Max(quotient, hn::Set(d, kGuard));
        const V power = hn::Exp(d, hn::Mul(e, hn::Log(d, positive)));
        Store(hn::IfThenElseZero(quotient > zero, power), out + i, count);
    });
}

void ComplexProductKernel(float* out, const float* a, const float* b, std::size_t pairs,
                          float scale) {
    const D d;
    const std::size_t lanes = hn::Lanes(d);
    const V s = hn::Set(d, scale);
    // One step takes `lanes` pairs: the real parts into one vector, the imaginary into another.
    const auto step = [&](const float* pa, const float* pb, float* po) {
        V ar, ai, br, bi;
        hn::LoadInterleaved2(d, pa, ar, ai);
        hn::LoadInterleaved2(d, pb, br, bi);
        const V re = hn::Mul(hn::Sub(hn::Mul(br, ar), hn::Mul(bi, ai)), s);
        const V im = hn::Mul(hn::Add(hn::Mul(bi, ar), hn::Mul(br, ai)), s);
        hn::StoreInterleaved2(re, im, d, po);
    };
    std::size_t i = 0;
    for (; i + lanes <= pairs; i += lanes)
        step(a + 2 * i, b + 2 * i, out + 2 * i);
    if (i < pairs) {
        HWY_ALIGN float ta[2 * kAccumulators] = {}, tb[2 * kAccumulators] = {},
                               to[2 * kAccumulators];
        const std::size_t floats = 2 * (pairs - i);
        std::copy_n(a + 2 * i, floats, ta);
        std::copy_n(b + 2 * i, floats, tb);
        step(ta, tb, to);
        std::copy_n(to, floats, out + 2 * i);
    }
}

void NegateImaginaryKernel(float* pairs, std::size_t count) {
    const D d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        V re, im;
        hn::LoadInterleaved2(d, pairs + 2 * i, re, im);
        hn::StoreInterleaved2(re, hn::Neg(im), d, pairs + 2 * i);
    }
    for (; i < count; ++i)
        pairs[2 * i + 1] = -pairs[2 * i + 1];
}

void InterleaveKernel(float* out, const float* re, const float* im, std::size_t pairs) {
    const D d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= pairs; i += lanes) {
        const V r = re ? hn::LoadU(d, re + i) : hn::Zero(d);
        const V m = im ? hn::LoadU(d, im + i) : hn::Zero(d);
        hn::StoreInterleaved2(r, m, d, out + 2 * i);
    }
    for (; i < pairs; ++i) {
        out[2 * i] = re ? re[i] : 0.0f;
        out[2 * i + 1] = im ? im[i] : 0.0f;
    }
}

void DeinterleaveKernel(const float* in, float* re, float* im, std::size_t pairs, float scale) {
    const D d;
    const std::size_t lanes = hn::Lanes(d);
    const V s = hn::Set(d, scale);
    std::size_t i = 0;
    for (; i + lanes <= pairs; i += lanes) {
        V r, m;
        hn::LoadInterleaved2(d, in + 2 * i, r, m);
        if (re)
            hn::StoreU(hn::Mul(r, s), d, re + i);
        if (im)
            hn::StoreU(hn::Mul(m, s), d, im + i);
    }
    for (; i < pairs; ++i) {
        if (re)
            re[i] = in[2 * i] * scale;
        if (im)
            im[i] = in[2 * i + 1] * scale;
    }
}

// Sums term(lanes of the inputs) over a line in the sixteen accumulators. Lanes past the end
// of the line are loaded from zeroed copies (the second input from ones, so that a quotient
// stays finite) and then masked out of the sum.
template <class Term>
HWY_INLINE float SumOfTerms(const float* a, const float* b, const float* c, std::size_t n,
                            Term term) {
    const D d;
    const std::size_t lanes = hn::Lanes(d);
    const std::size_t vectors = kAccumulators / lanes;
    V acc[kAccumulators];
    for (std::size_t j = 0; j < vectors; ++j)
        acc[j] = hn::Zero(d);
    std::size_t i = 0;
    for (; i + kAccumulators <= n; i += kAccumulators)
        for (std::size_t j = 0; j < vectors; ++j) {
            const std::size_t at = i + j * lanes;
            acc[j] = hn::Add(acc[j], term(hn::LoadU(d, a + at), b ? hn::LoadU(d, b + at) : acc[j],
                                          c ? hn::LoadU(d, c + at) : acc[j]));
        }
    for (std::size_t j = 0; j < vectors && i + j * lanes < n; ++j) {
        const std::size_t at = i + j * lanes;
        const std::size_t count = std::min(lanes, n - at);
        const V v = term(Load(a + at, count), b ? Load(b + at, count, 1.0f) : acc[j],
                         c ? Load(c + at, count) : acc[j]);
        acc[j] = hn::Add(acc[j], hn::IfThenElseZero(hn::FirstN(d, count), v));
    }
    HWY_ALIGN float partial[kAccumulators];
    for (std::size_t j = 0; j < vectors; ++j)
        hn::Store(acc[j], d, partial + j * lanes);
    float sum = partial[0];
    for (std::size_t k = 1; k < kAccumulators; ++k)
        sum += partial[k];
    return sum;
}

float LineSumKernel(eLineSum kind, const float* a, const float* b, std::size_t n) {
    switch (kind) {
    case eLineSum::Sum:
        return SumOfTerms(a, nullptr, nullptr, n, [](V p, V, V) { return p; });
    case eLineSum::Squares:
        return SumOfTerms(a, nullptr, nullptr, n, [](V p, V, V) { return hn::Mul(p, p); });
    case eLineSum::Absolute:
        return SumOfTerms(a, nullptr, nullptr, n, [](V p, V, V) { return hn::Abs(p); });
    case eLineSum::Product:
        return SumOfTerms(a, b, nullptr, n, [](V p, V q, V) { return hn::Mul(p, q); });
    }
    return 0.0f;
}

// Σ (p - low) / range over a line, each quotient a float as the plain back end forms it and
// the sum in double: pixel i goes into part i mod 16, a lane of one of the double
// accumulators, and the parts are added in ascending order at the end, on every vector width.
double NormalizedLineSumKernel(const float* p, std::size_t n, float low, float range) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const std::size_t lanes = hn::Lanes(dd);
    double parts[kAccumulators] = {};
    std::size_t x = 0;
    if (lanes <= kAccumulators && kAccumulators % lanes == 0) {
        const std::size_t vectors = kAccumulators / lanes;
        hn::Vec<decltype(dd)> sums[kAccumulators];
        for (std::size_t k = 0; k < vectors; ++k)
            sums[k] = hn::Zero(dd);
        const auto lo = hn::Set(df, low), r = hn::Set(df, range);
        for (; x + kAccumulators <= n; x += kAccumulators)
            for (std::size_t k = 0; k < vectors; ++k) {
                const auto v = hn::Div(hn::Sub(hn::LoadU(df, p + x + k * lanes), lo), r);
                sums[k] = hn::Add(sums[k], hn::PromoteTo(dd, v));
            }
        for (std::size_t k = 0; k < vectors; ++k)
            hn::StoreU(sums[k], dd, parts + k * lanes);
    }
    for (; x < n; ++x)
        parts[x % kAccumulators] += static_cast<double>((p[x] - low) / range);
    double sum = parts[0];
    for (std::size_t k = 1; k < kAccumulators; ++k)
        sum += parts[k];
    return sum;
}

float LogLikelihoodGainKernel(const float* data, const float* blurred, const float* direction,
                              float step, std::size_t n) {
    const D d;
    const V t = hn::Set(d, step), one = hn::Set(d, 1.0f);
    return SumOfTerms(data, blurred, direction, n, [&](V g, V f, V c) {
        const V change = hn::Mul(c, t);
        const V ratio = RaiseToGuard(hn::Add(hn::Div(change, f), one));
        return hn::Sub(hn::Mul(hn::Log(d, ratio), g), change);
    });
}

void MinMaxKernel(const float* p, std::size_t n, float& low, float& high) {
    const D d;
    V lo = hn::Set(d, low), hi = hn::Set(d, high);
    // A lane replaces the running extreme only when it compares, so NaN pixels are skipped.
    ForEachVector(n, [&](std::size_t i, std::size_t count) {
        const V v = Load(p + i, count, p[i]);
        lo = hn::IfThenElse(v < lo, v, lo);
        hi = hn::IfThenElse(v > hi, v, hi);
    });
    HWY_ALIGN float lanes[2][kAccumulators];
    hn::Store(lo, d, lanes[0]);
    hn::Store(hi, d, lanes[1]);
    for (std::size_t k = 0; k < hn::Lanes(d); ++k) {
        low = lanes[0][k] < low ? lanes[0][k] : low;
        high = lanes[1][k] > high ? lanes[1][k] : high;
    }
}

std::size_t FindFirstKernel(const float* p, std::size_t n, float value) {
    const D d;
    const V v = hn::Set(d, value);
    std::size_t found = n;
    const std::size_t lanes = hn::Lanes(d);
    for (std::size_t i = 0; i < n; i += lanes) {
        const std::size_t count = std::min(lanes, n - i);
        const auto equal = hn::And(Load(p + i, count) == v, hn::FirstN(d, count));
        const intptr_t first = hn::FindFirstTrue(d, equal);
        if (first >= 0) {
            found = i + static_cast<std::size_t>(first);
            break;
        }
    }
    return found;
}

uint64_t CountClosedRangeKernel(const float* p, std::size_t n, float low, float high) {
    const D d;
    const V lo = hn::Set(d, low), hi = hn::Set(d, high);
    uint64_t count = 0;
    ForEachVector(n, [&](std::size_t i, std::size_t lanes) {
        const V v = Load(p + i, lanes);
        const auto inside = hn::And(hn::And(v >= lo, v <= hi), hn::FirstN(d, lanes));
        count += hn::CountTrue(d, inside);
    });
    return count;
}

std::size_t SplitBelowKernel(const float* p, std::size_t n, float limit, float* below) {
    const D d;
    const V l = hn::Set(d, limit);
    std::size_t count = 0;
    ForEachVector(n, [&](std::size_t i, std::size_t lanes) {
        const V v = Load(p + i, lanes);
        const auto inside = hn::And(v < l, hn::FirstN(d, lanes));
        // Most runs have no pixel below; a compress stored to memory is slow on some cores,
        // so the compressed vector is stored whole, into the slack past the count.
        if (hn::AllFalse(d, inside))
            return;
        hn::StoreU(hn::Compress(v, inside), d, below + count);
        count += hn::CountTrue(d, inside);
    });
    return count;
}

void SetWhereKernel(float* out, const float* squares, float offset, std::size_t n, float limit,
                    bool below, float value) {
    const D d;
    const V o = hn::Set(d, offset), l = hn::Set(d, limit), v = hn::Set(d, value);
    ForEachVector(n, [&](std::size_t i, std::size_t count) {
        const V r2 = hn::Add(Load(squares + i, count), o);
        const auto inside = below ? r2 < l : r2 > l;
        Store(hn::IfThenElse(inside, v, Load(out + i, count)), out + i, count);
    });
}

void FloorAtGuardKernel(float* p, std::size_t n) {
    ForEachVector(n, [&](std::size_t i, std::size_t count) {
        Store(RaiseToGuard(Load(p + i, count)), p + i, count);
    });
}

void RoughnessLineKernel(float* e, const float* r, const float* above, const float* below,
                         const float* next, const float* previous, std::size_t n, float beta,
                         float factor) {
    if (n >= 3) {
        const D d;
        const V b = hn::Set(d, beta), f = hn::Set(d, factor);
        const std::size_t inner = n - 2;
        // Pixel x = 1 + i: its left neighbour is r[i], its right one r[i + 2].
        ForEachVector(inner, [&](std::size_t i, std::size_t count) {
            const std::size_t x = i + 1;
            V s = hn::Add(Load(r + i, count), Load(r + x + 1, count));
            s = hn::Add(s, Load(above + x, count));
            s = hn::Add(s, Load(below + x, count));
            if (next) {
                s = hn::Add(s, Load(next + x, count));
                s = hn::Add(s, Load(previous + x, count));
            }
            const V update =
                hn::Add(hn::Mul(hn::Mul(b, Load(r + x, count)), s), Load(e + x, count));
            Store(hn::Mul(update, f), e + x, count);
        });
    }
    FloorAtGuardKernel(e, n);
}

// Halved, rounded to nearest (the processor's default rounding, ties to even) and saturated;
// the clamp before the rounding gives the same result as a saturation after it.
void FloatToHalvedShortKernel(uint16_t* out, const float* in, std::size_t n) {
    const D d;
    const hn::Rebind<int16_t, D> dw;
    const V half = hn::Set(d, 0.5f), lo = hn::Set(d, -32768.0f), hi = hn::Set(d, 32767.0f);
    HWY_ALIGN int16_t buffer[kAccumulators];
    ForEachVector(n, [&](std::size_t i, std::size_t count) {
        V v = hn::Mul(Load(in + i, count), half);
        v = hn::IfThenZeroElse(hn::IsNaN(v), v);
        v = hn::Min(hn::Max(v, lo), hi);
        const auto words = hn::DemoteTo(dw, hn::NearestInt(v));
        hn::Store(words, dw, buffer);
        std::memcpy(out + i, buffer, count * sizeof(uint16_t));
    });
}

void FloatToSaturatedByteKernel(uint8_t* out, const float* in, std::size_t n) {
    const D d;
    const hn::Rebind<uint8_t, D> db;
    const V lo = hn::Zero(d), hi = hn::Set(d, 255.0f);
    HWY_ALIGN uint8_t buffer[kAccumulators];
    ForEachVector(n, [&](std::size_t i, std::size_t count) {
        V v = Load(in + i, count);
        v = hn::IfThenZeroElse(hn::IsNaN(v), v);
        v = hn::Min(hn::Max(v, lo), hi);
        hn::Store(hn::DemoteTo(db, hn::NearestInt(v)), db, buffer);
        std::memcpy(out + i, buffer, count);
    });
}

template <class T> void IntegerToFloat(float* out, const T* in, std::size_t n) {
    const D d;
    const hn::Rebind<int32_t, D> di;
    const hn::Rebind<T, D> dt;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= n; i += lanes)
        hn::StoreU(hn::ConvertTo(d, hn::PromoteTo(di, hn::LoadU(dt, in + i))), d, out + i);
    for (; i < n; ++i)
        out[i] = static_cast<float>(in[i]);
}

void ByteToFloatKernel(float* out, const uint8_t* in, std::size_t n) {
    IntegerToFloat(out, in, n);
}
void ShortToFloatKernel(float* out, const uint16_t* in, std::size_t n) {
    IntegerToFloat(out, in, n);
}

const char* TargetNameKernel() {
    return hwy::TargetName(HWY_TARGET);
}

} // namespace HWY_NAMESPACE
} // namespace Ovidane::HighwayKernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Ovidane::HighwayKernels {

HWY_EXPORT(BinaryKernel);
HWY_EXPORT(UnaryKernel);
HWY_EXPORT(PowerOfQuotientKernel);
HWY_EXPORT(ComplexProductKernel);
HWY_EXPORT(NegateImaginaryKernel);
HWY_EXPORT(InterleaveKernel);
HWY_EXPORT(DeinterleaveKernel);
HWY_EXPORT(LineSumKernel);
HWY_EXPORT(NormalizedLineSumKernel);
HWY_EXPORT(LogLikelihoodGainKernel);
HWY_EXPORT(MinMaxKernel);
HWY_EXPORT(FindFirstKernel);
HWY_EXPORT(CountClosedRangeKernel);
HWY_EXPORT(SplitBelowKernel);
HWY_EXPORT(RoughnessLineKernel);
HWY_EXPORT(FloorAtGuardKernel);
HWY_EXPORT(SetWhereKernel);
HWY_EXPORT(FloatToHalvedShortKernel);
HWY_EXPORT(FloatToSaturatedByteKernel);
HWY_EXPORT(ByteToFloatKernel);
HWY_EXPORT(ShortToFloatKernel);
HWY_EXPORT(TargetNameKernel);

void Binary(eBinary op, float* out, const float* a, const float* b, std::size_t n) {
    HWY_DYNAMIC_DISPATCH(BinaryKernel)(op, out, a, b, n);
}
void Unary(eUnary op, float* out, const float* a, std::size_t n, const cUnaryArguments& arguments) {
    HWY_DYNAMIC_DISPATCH(UnaryKernel)(op, out, a, n, arguments);
}
void PowerOfQuotient(float* out, const float* a, float* b, std::size_t n, float exponent) {
    HWY_DYNAMIC_DISPATCH(PowerOfQuotientKernel)(out, a, b, n, exponent);
}
void ComplexProduct(float* out, const float* a, const float* b, std::size_t pairs, float scale) {
    HWY_DYNAMIC_DISPATCH(ComplexProductKernel)(out, a, b, pairs, scale);
}
void NegateImaginary(float* pairs, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(NegateImaginaryKernel)(pairs, count);
}
void Interleave(float* out, const float* re, const float* im, std::size_t pairs) {
    HWY_DYNAMIC_DISPATCH(InterleaveKernel)(out, re, im, pairs);
}
void Deinterleave(const float* in, float* re, float* im, std::size_t pairs, float scale) {
    HWY_DYNAMIC_DISPATCH(DeinterleaveKernel)(in, re, im, pairs, scale);
}
float LineSum(eLineSum kind, const float* a, const float* b, std::size_t n) {
    return HWY_DYNAMIC_DISPATCH(LineSumKernel)(kind, a, b, n);
}
float LogLikelihoodGain(const float* data, const float* blurred, const float* direction, float step,
                        std::size_t n) {
    return HWY_DYNAMIC_DISPATCH(LogLikelihoodGainKernel)(data, blurred, direction, step, n);
}

double NormalizedLineSum(const float* p, std::size_t n, float low, float range) {
    return HWY_DYNAMIC_DISPATCH(NormalizedLineSumKernel)(p, n, low, range);
}

void MinMax(const float* p, std::size_t n, float& low, float& high) {
    HWY_DYNAMIC_DISPATCH(MinMaxKernel)(p, n, low, high);
}
std::size_t FindFirst(const float* p, std::size_t n, float v) {
    return HWY_DYNAMIC_DISPATCH(FindFirstKernel)(p, n, v);
}
uint64_t CountClosedRange(const float* p, std::size_t n, float low, float high) {
    return HWY_DYNAMIC_DISPATCH(CountClosedRangeKernel)(p, n, low, high);
}

static_assert(HWY_MAX_BYTES / sizeof(float) <= kSplitSlack, "a vector fits the slack");

std::size_t SplitBelow(const float* p, std::size_t n, float limit, float* below) {
    return HWY_DYNAMIC_DISPATCH(SplitBelowKernel)(p, n, limit, below);
}

void RoughnessLine(float* estimate, const float* reference, const float* above, const float* below,
                   const float* next, const float* previous, std::size_t n, float beta,
                   float factor) {
    HWY_DYNAMIC_DISPATCH(RoughnessLineKernel)
    (estimate, reference, above, below, next, previous, n, beta, factor);
}
void SetWhere(float* out, const float* squares, float offset, std::size_t n, float limit,
              bool below, float value) {
    HWY_DYNAMIC_DISPATCH(SetWhereKernel)(out, squares, offset, n, limit, below, value);
}
void FloorAtGuard(float* p, std::size_t n) {
    HWY_DYNAMIC_DISPATCH(FloorAtGuardKernel)(p, n);
}
void FloatToHalvedShort(uint16_t* out, const float* in, std::size_t n) {
    HWY_DYNAMIC_DISPATCH(FloatToHalvedShortKernel)(out, in, n);
}
void FloatToSaturatedByte(uint8_t* out, const float* in, std::size_t n) {
    HWY_DYNAMIC_DISPATCH(FloatToSaturatedByteKernel)(out, in, n);
}
void ByteToFloat(float* out, const uint8_t* in, std::size_t n) {
    HWY_DYNAMIC_DISPATCH(ByteToFloatKernel)(out, in, n);
}
void ShortToFloat(float* out, const uint16_t* in, std::size_t n) {
    HWY_DYNAMIC_DISPATCH(ShortToFloatKernel)(out, in, n);
}
const char* TargetName() {
    return HWY_DYNAMIC_DISPATCH(TargetNameKernel)();
}

} // namespace Ovidane::HighwayKernels
#endif
