// The pass kernels, compiled once for every instruction set that Highway targets on this
// architecture; this file includes itself through foreach_target.h once per target, and the
// HWY_ONCE part at the end holds the entry points that pick a target at run time.
//
// A vector lane performs the scalar formula's operations in the scalar formula's order, and
// the pixels left over at a line's end run the scalar formula itself, so every target gives
// the same bits as plain scalar code.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "math/PassKernels.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include <cmath>

#include "math/FastLogExp.h"
#include "math/PassKernels.h"

HWY_BEFORE_NAMESPACE();
namespace Ovidane::PassKernels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;

// The comparisons of std::min and std::max, NaN handling included.
HWY_INLINE V AtLeast(V v, V low) { return hn::IfThenElse(v < low, low, v); }
HWY_INLINE V AtMost(V v, V high) { return hn::IfThenElse(high < v, high, v); }

// FastMath::Log and FastMath::Exp, lane by lane.
HWY_INLINE V Log(V x) {
    const D d;
    const hn::RebindToSigned<D> di;
    const hn::RebindToUnsigned<D> du;
    x = hn::IfThenElse(x < hn::Set(d, 1.17549435e-38f), hn::Set(d, 1.17549435e-38f),
                       AtMost(x, hn::Set(d, 3.40282347e38f)));
    const auto bits = hn::BitCast(du, x);
    V e = hn::ConvertTo(d, hn::Sub(hn::BitCast(di, hn::ShiftRight<23>(bits)), hn::Set(di, 127)));
    V m = hn::BitCast(d, hn::Or(hn::And(bits, hn::Set(du, 0x007FFFFFu)), hn::Set(du, 0x3F800000u)));
    const auto high = m > hn::Set(d, 1.41421356f);
    m = hn::IfThenElse(high, hn::Mul(hn::Set(d, 0.5f), m), m);
    e = hn::IfThenElse(high, hn::Add(e, hn::Set(d, 1.0f)), e);
    const V one = hn::Set(d, 1.0f);
    const V t = hn::Div(hn::Sub(m, one), hn::Add(m, one));
    const V t2 = hn::Mul(t, t);
    V series = hn::Add(hn::Set(d, 1.0f / 7), hn::Mul(t2, hn::Set(d, 1.0f / 9)));
    series = hn::Add(hn::Set(d, 1.0f / 5), hn::Mul(t2, series));
    series = hn::Add(hn::Set(d, 1.0f / 3), hn::Mul(t2, series));
    series = hn::Add(one, hn::Mul(t2, series));
    return hn::Add(hn::Mul(e, hn::Set(d, 0.693147181f)),
                   hn::Mul(hn::Mul(hn::Set(d, 2.0f), t), series));
}

HWY_INLINE V Exp(V y) {
    const D d;
    const hn::RebindToSigned<D> di;
    y = hn::IfThenElse(y < hn::Set(d, -87.33f), hn::Set(d, -87.33f), AtMost(y, hn::Set(d, 88.0f)));
    const V half = hn::IfThenElse(y < hn::Zero(d), hn::Set(d, -0.5f), hn::Set(d, 0.5f));
    const auto whole = hn::ConvertTo(di, hn::Add(hn::Mul(y, hn::Set(d, 1.44269504f)), half));
    const V n = hn::ConvertTo(d, whole);
    const V f = hn::Sub(hn::Sub(y, hn::Mul(n, hn::Set(d, 0.693145752f))),
                        hn::Mul(n, hn::Set(d, 1.42860677e-6f)));
    V p = hn::Add(hn::Set(d, 1.0f / 120), hn::Mul(f, hn::Set(d, 1.0f / 720)));
    p = hn::Add(hn::Set(d, 1.0f / 24), hn::Mul(f, p));
    p = hn::Add(hn::Set(d, 1.0f / 6), hn::Mul(f, p));
    p = hn::Add(hn::Set(d, 0.5f), hn::Mul(f, p));
    p = hn::Add(hn::Set(d, 1.0f), hn::Mul(f, p));
    p = hn::Add(hn::Set(d, 1.0f), hn::Mul(f, p));
    const V scale = hn::BitCast(d, hn::ShiftLeft<23>(hn::Add(whole, hn::Set(di, 127))));
    return hn::Mul(p, scale);
}

// Calls vector(i) for each whole vector of a run of n and scalar(i) for the pixels after.
template <class Vector, class Scalar>
HWY_INLINE void ForRun(std::size_t n, Vector&& vector, Scalar&& scalar) {
    const std::size_t lanes = hn::Lanes(D());
    std::size_t i = 0;
    for (; i + lanes <= n; i += lanes)
        vector(i);
    for (; i < n; ++i)
        scalar(i);
}

// The interleaved products, `conjugate` taking conj(b).
template <bool conjugate>
HWY_INLINE void SpectrumProduct(const float* a, const float* b, float* out, std::size_t values,
                                float scale) {
    const D d;
    const V s = hn::Set(d, scale);
    ForRun(
        values,
        [&](std::size_t i) {
            V ar, ai, br, bi;
            hn::LoadInterleaved2(d, a + 2 * i, ar, ai);
            hn::LoadInterleaved2(d, b + 2 * i, br, bi);
            const V re = conjugate ? hn::Add(hn::Mul(ar, br), hn::Mul(ai, bi))
                                   : hn::Sub(hn::Mul(ar, br), hn::Mul(ai, bi));
            const V im = conjugate ? hn::Sub(hn::Mul(ai, br), hn::Mul(ar, bi))
                                   : hn::Add(hn::Mul(ar, bi), hn::Mul(ai, br));
            hn::StoreInterleaved2(hn::Mul(re, s), hn::Mul(im, s), d, out + 2 * i);
        },
        [&](std::size_t i) {
            const float ar = a[2 * i], ai = a[2 * i + 1], br = b[2 * i], bi = b[2 * i + 1];
            const float re = conjugate ? ar * br + ai * bi : ar * br - ai * bi;
            const float im = conjugate ? ai * br - ar * bi : ar * bi + ai * br;
            out[2 * i] = re * scale;
            out[2 * i + 1] = im * scale;
        });
}

void WienerSpectrumLineKernel(const float* g, const float* h, float* out, uint64_t values,
                              float k, float scale) {
    const D d;
    const V s = hn::Set(d, scale), kv = hn::Set(d, k);
    ForRun(
        values,
        [&](std::size_t i) {
            V gr, gi, hr, hi;
            hn::LoadInterleaved2(d, g + 2 * i, gr, gi);
            hn::LoadInterleaved2(d, h + 2 * i, hr, hi);
            const V t = hn::Add(hn::Add(hn::Mul(hr, hr), hn::Mul(hi, hi)), kv);
            const V qr = hn::Div(hr, t), qi = hn::Div(hn::Neg(hi), t);
            const V re = hn::Sub(hn::Mul(gr, qr), hn::Mul(gi, qi));
            const V im = hn::Add(hn::Mul(gr, qi), hn::Mul(gi, qr));
            hn::StoreInterleaved2(hn::Mul(re, s), hn::Mul(im, s), d, out + 2 * i);
        },
        [&](std::size_t i) {
            const float gr = g[2 * i], gi = g[2 * i + 1], hr = h[2 * i], hi = h[2 * i + 1];
            const float t = (hr * hr + hi * hi) + k;
            const float qr = hr / t, qi = -hi / t;
            out[2 * i] = (gr * qr - gi * qi) * scale;
            out[2 * i + 1] = (gr * qi + gi * qr) * scale;
        });
}

void MultiplySpectrumLineKernel(const float* a, const float* b, float* out, uint64_t values,
                                float scale) {
    SpectrumProduct<false>(a, b, out, values, scale);
}

void MultiplyConjugateSpectrumLineKernel(const float* a, const float* b, float* out,
                                         uint64_t values, float scale) {
    SpectrumProduct<true>(a, b, out, values, scale);
}

void ExtrapolationGradientLineKernel(uint32_t n, const float* x, const float* m, const float* last,
                                     float* p, float* h, cGradientSums& sums) {
    const D d;
    ForRun(
        n,
        [&](std::size_t i) {
            const V mi = hn::LoadU(d, m + i);
            const V update = hn::Mul(hn::LoadU(d, x + i), mi);
            hn::StoreU(update, d, p + i);
            hn::StoreU(hn::Mul(update, hn::IfThenElseZero(mi > hn::Zero(d), Log(mi))), d, h + i);
        },
        [&](std::size_t i) {
            const float update = x[i] * m[i];
            p[i] = update;
            h[i] = update * (m[i] > 0.0f ? FastMath::Log(m[i]) : 0.0f);
        });
    // Eight sums in double, pixel i into sum i % 8, joined in a fixed order: the same on
    // every target. Whole groups of eight run in vectors of doubles, lane j of the group's
    // k-th vector being sum k * lanes + j.
    constexpr uint32_t kLanes = 8;
    const hn::CappedTag<double, kLanes> dd;
    const hn::Rebind<float, decltype(dd)> df;
    constexpr std::size_t kMaxVectors = kLanes;
    const std::size_t lanes = hn::Lanes(dd), vectors = kLanes / lanes;
    using VD = hn::Vec<decltype(dd)>;
    VD crossVectors[kMaxVectors], squareVectors[kMaxVectors];
    for (std::size_t k = 0; k < vectors; ++k)
        crossVectors[k] = squareVectors[k] = hn::Zero(dd);
    uint32_t i = 0;
    for (; i + kLanes <= n; i += kLanes)
        for (std::size_t k = 0; k < vectors; ++k) {
            const VD previous = hn::PromoteTo(dd, hn::LoadU(df, last + i + k * lanes));
            const VD gradient = hn::PromoteTo(dd, hn::LoadU(df, h + i + k * lanes));
            crossVectors[k] = hn::Add(crossVectors[k], hn::Mul(gradient, previous));
            squareVectors[k] = hn::Add(squareVectors[k], hn::Mul(previous, previous));
        }
    double cross[kLanes], square[kLanes];
    for (std::size_t k = 0; k < vectors; ++k) {
        hn::StoreU(crossVectors[k], dd, cross + k * lanes);
        hn::StoreU(squareVectors[k], dd, square + k * lanes);
    }
    for (; i < n; ++i) {
        const double previous = last[i];
        cross[i % kLanes] += static_cast<double>(h[i]) * previous;
        square[i % kLanes] += previous * previous;
    }
    double lineCross = 0, lineSquare = 0;
    for (uint32_t lane = 0; lane < kLanes; ++lane) {
        lineCross += cross[lane];
        lineSquare += square[lane];
    }
    sums.cross += lineCross;
    sums.lastSquare += lineSquare;
}

void ExtrapolateLineKernel(uint32_t n, const float* p, const float* q, float* out, float alpha,
                           float threshold, float maxRatio, float floor) {
    const D d;
    const float high = maxRatio, low = 1.0f / maxRatio;
    const V power = hn::Set(d, alpha), t = hn::Set(d, threshold), f = hn::Set(d, floor),
            vHigh = hn::Set(d, high), vLow = hn::Set(d, low);
    ForRun(
        n,
        [&](std::size_t i) {
            const V pi = hn::LoadU(d, p + i), qi = hn::LoadU(d, q + i);
            const V r = AtMost(AtLeast(hn::Div(pi, qi), vLow), vHigh);
            const V factor = Exp(hn::Mul(power, Log(r)));
            const auto keep = hn::Or(qi <= t, qi == hn::Zero(d));
            hn::StoreU(AtLeast(hn::IfThenElse(keep, pi, hn::Mul(pi, factor)), f), d, out + i);
        },
        [&](std::size_t i) {
            const float a = p[i], b = q[i];
            const float r = std::min(std::max(a / b, low), high);
            const float value =
                (b <= threshold || b == 0.0f) ? a : a * FastMath::Exp(alpha * FastMath::Log(r));
            out[i] = value < floor ? floor : value;
        });
}

bool WeightedAddLineKernel(const float* tile, const float* mask, float* out, uint32_t n,
                           bool fresh) {
    const D d;
    bool finite = true;
    ForRun(
        n,
        [&](std::size_t i) {
            const V t = hn::LoadU(d, tile + i);
            const V before = fresh ? hn::Zero(d) : hn::LoadU(d, out + i);
            hn::StoreU(hn::Add(hn::Mul(t, hn::LoadU(d, mask + i)), before), d, out + i);
            if (!hn::AllTrue(d, hn::IsFinite(t)))
                finite = false;
        },
        [&](std::size_t i) {
            out[i] = tile[i] * mask[i] + (fresh ? 0.0f : out[i]);
            if (!std::isfinite(tile[i]))
                finite = false;
        });
    return finite;
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
} // namespace HWY_NAMESPACE
} // namespace Ovidane::PassKernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Ovidane::PassKernels {

HWY_EXPORT(WienerSpectrumLineKernel);
HWY_EXPORT(MultiplySpectrumLineKernel);
HWY_EXPORT(MultiplyConjugateSpectrumLineKernel);
HWY_EXPORT(ExtrapolationGradientLineKernel);
HWY_EXPORT(ExtrapolateLineKernel);
HWY_EXPORT(WeightedAddLineKernel);

void WienerSpectrumLine(const float* g, const float* h, float* out, uint64_t values, float k,
                        float scale) {
    HWY_DYNAMIC_DISPATCH(WienerSpectrumLineKernel)(g, h, out, values, k, scale);
}

void MultiplySpectrumLine(const float* a, const float* b, float* out, uint64_t values,
                          float scale) {
    HWY_DYNAMIC_DISPATCH(MultiplySpectrumLineKernel)(a, b, out, values, scale);
}

void MultiplyConjugateSpectrumLine(const float* a, const float* b, float* out, uint64_t values,
                                   float scale) {
    HWY_DYNAMIC_DISPATCH(MultiplyConjugateSpectrumLineKernel)(a, b, out, values, scale);
}

void ExtrapolationGradientLine(uint32_t n, const float* x, const float* m, const float* last,
                               float* p, float* h, cGradientSums& sums) {
    HWY_DYNAMIC_DISPATCH(ExtrapolationGradientLineKernel)(n, x, m, last, p, h, sums);
}

void ExtrapolateLine(uint32_t n, const float* p, const float* q, float* out, float alpha,
                     float threshold, float maxRatio, float floor) {
    HWY_DYNAMIC_DISPATCH(ExtrapolateLineKernel)(n, p, q, out, alpha, threshold, maxRatio, floor);
}

bool WeightedAddLine(const float* tile, const float* mask, float* out, uint32_t n, bool fresh) {
    return HWY_DYNAMIC_DISPATCH(WeightedAddLineKernel)(tile, mask, out, n, fresh);
}

} // namespace Ovidane::PassKernels
#endif // HWY_ONCE
