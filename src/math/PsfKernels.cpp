// The PSF kernels, compiled once for every instruction set that Highway targets; this file
// includes itself through foreach_target.h once per target, and the HWY_ONCE part holds the
// entry points that pick a target at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "math/PsfKernels.cpp"
#include <hwy/foreach_target.h> // IWYU pragma: keep

#include <hwy/highway.h>

#include <type_traits>

#include "math/PsfKernels.h"

HWY_BEFORE_NAMESPACE();
namespace Ovidane::PsfKernels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void AddPupilTermKernel(const float* row, float c, float s, float* real, float* imaginary,
                        std::size_t n) {
    const hn::ScalableTag<float> d;
    const std::size_t lanes = hn::Lanes(d);
    const auto vc = hn::Set(d, c), vs = hn::Set(d, s);
    std::size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto r = hn::LoadU(d, row + i);
        hn::StoreU(hn::Add(hn::LoadU(d, real + i), hn::Mul(vc, r)), d, real + i);
        hn::StoreU(hn::Add(hn::LoadU(d, imaginary + i), hn::Mul(vs, r)), d, imaginary + i);
    }
    for (; i < n; ++i) {
        real[i] += c * row[i];
        imaginary[i] += s * row[i];
    }
}

void AddRowBlocksKernel(const float* row, float* blocks, std::size_t n, uint32_t s) {
    const hn::ScalableTag<float> d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t x = 0;
    // Two to four sub-pixels a block: de-interleaving loads give sub-pixel b of `lanes`
    // blocks in one vector.
    if (s >= 2 && s <= 4)
        for (; x + lanes <= n; x += lanes) {
            const float* at = row + x * s;
            auto sum = hn::LoadU(d, blocks + x);
            if (s == 2) {
                hn::Vec<decltype(d)> b0, b1;
                hn::LoadInterleaved2(d, at, b0, b1);
                sum = hn::Add(hn::Add(sum, b0), b1);
            } else if (s == 3) {
                hn::Vec<decltype(d)> b0, b1, b2;
                hn::LoadInterleaved3(d, at, b0, b1, b2);
                sum = hn::Add(hn::Add(hn::Add(sum, b0), b1), b2);
            } else {
                hn::Vec<decltype(d)> b0, b1, b2, b3;
                hn::LoadInterleaved4(d, at, b0, b1, b2, b3);
                sum = hn::Add(hn::Add(hn::Add(hn::Add(sum, b0), b1), b2), b3);
            }
            hn::StoreU(sum, d, blocks + x);
        }
    for (; x < n; ++x)
        for (uint32_t b = 0; b < s; ++b)
            blocks[x] += row[x * s + b];
}

// Each lane of an accumulator vector is one of the sixteen parts, so every target adds the
// same values into each part in the same order.
template <bool kScale>
void PlaneSumKernel(std::conditional_t<kScale, float*, const float*> line, std::size_t n,
                    float factor, double* parts) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const std::size_t lanes = hn::Lanes(dd);
    std::size_t x = 0;
    if (lanes <= kPlaneSumParts && kPlaneSumParts % lanes == 0) {
        const std::size_t vectors = kPlaneSumParts / lanes;
        hn::Vec<decltype(dd)> sums[kPlaneSumParts];
        for (std::size_t k = 0; k < vectors; ++k)
            sums[k] = hn::LoadU(dd, parts + k * lanes);
        const auto scale = hn::Set(df, factor);
        for (; x + kPlaneSumParts <= n; x += kPlaneSumParts)
            for (std::size_t k = 0; k < vectors; ++k) {
                auto v = hn::LoadU(df, line + x + k * lanes);
                if constexpr (kScale) {
                    v = hn::Mul(v, scale);
                    hn::StoreU(v, df, line + x + k * lanes);
                }
                sums[k] = hn::Add(sums[k], hn::PromoteTo(dd, v));
            }
        for (std::size_t k = 0; k < vectors; ++k)
            hn::StoreU(sums[k], dd, parts + k * lanes);
    }
    for (; x < n; ++x) {
        if constexpr (kScale)
            line[x] *= factor;
        parts[x % kPlaneSumParts] += line[x];
    }
}

void AddToPlaneSumKernel(const float* line, std::size_t n, double* parts) {
    PlaneSumKernel<false>(line, n, 1.0f, parts);
}

void ScaleAndAddToPlaneSumKernel(float* line, std::size_t n, float factor, double* parts) {
    PlaneSumKernel<true>(line, n, factor, parts);
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
} // namespace HWY_NAMESPACE
} // namespace Ovidane::PsfKernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Ovidane::PsfKernels {

HWY_EXPORT(AddPupilTermKernel);
HWY_EXPORT(AddRowBlocksKernel);
HWY_EXPORT(AddToPlaneSumKernel);
HWY_EXPORT(ScaleAndAddToPlaneSumKernel);

void AddPupilTerm(const float* row, float c, float s, float* real, float* imaginary,
                  std::size_t n) {
    HWY_DYNAMIC_DISPATCH(AddPupilTermKernel)(row, c, s, real, imaginary, n);
}

void AddRowBlocks(const float* row, float* blocks, std::size_t n, uint32_t s) {
    HWY_DYNAMIC_DISPATCH(AddRowBlocksKernel)(row, blocks, n, s);
}

void AddToPlaneSum(const float* line, std::size_t n, double* parts) {
    HWY_DYNAMIC_DISPATCH(AddToPlaneSumKernel)(line, n, parts);
}

void ScaleAndAddToPlaneSum(float* line, std::size_t n, float factor, double* parts) {
    HWY_DYNAMIC_DISPATCH(ScaleAndAddToPlaneSumKernel)(line, n, factor, parts);
}

} // namespace Ovidane::PsfKernels
#endif // HWY_ONCE
