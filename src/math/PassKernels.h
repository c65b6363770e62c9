#pragma once
// Line kernels of the heaviest element-wise steps of an iterative pass: the spectrum
// products of its convolutions and the extrapolation's gradient and step. Their logarithms,
// exponentials and divisions keep a pass busy computing rather than waiting for memory, so
// they run on Google Highway, built for every instruction set it targets here and chosen at
// the first call, as the vector back end's kernels are. The weighted add that blends a
// cut's tiles joins them: the compiler leaves its plain loop unvectorised.
//
// Unlike those, these compute the plain back end's formulas: every target gives each pixel
// the bits of the scalar code, and the sums keep eight lanes of their own in a fixed order,
// so they too are the same on every target and for any thread count.
#include <cstdint>

namespace Ovidane::PassKernels {

// out = a · b (or a · conj(b)) · scale over `values` interleaved complex numbers; out may be
// a or b.
void MultiplySpectrumLine(const float* a, const float* b, float* out, uint64_t values,
                          float scale);
void MultiplyConjugateSpectrumLine(const float* a, const float* b, float* out, uint64_t values,
                                   float scale);

// out = g · conj(h) / (|h|² + k) · scale, the regularised inverse filter, over `values`
// interleaved complex numbers; out may be g or h.
void WienerSpectrumLine(const float* g, const float* h, float* out, uint64_t values, float k,
                        float scale);

struct cGradientSums {
    double cross = 0, lastSquare = 0;
};

// p = x · m (the plain update) and h = p · ln m (its log-gradient; 0 where m <= 0); adds
// Σ h · last and Σ last² to `sums`. p and h are distinct from the inputs.
void ExtrapolationGradientLine(uint32_t n, const float* x, const float* m, const float* last,
                               float* p, float* h, cGradientSums& sums);

// out = p · r^alpha with r = p / q held within [1 / maxRatio, maxRatio]; out = p where
// q <= threshold or q is 0; then held at `floor` or above. out may be p or q.
void ExtrapolateLine(uint32_t n, const float* p, const float* q, float* out, float alpha,
                     float threshold, float maxRatio, float floor);

// out = tile · mask + out, the product rounded before the sum; with `fresh`, the product
// plus 0 in place of what out held. False when a tile value is not a finite number.
bool WeightedAddLine(const float* tile, const float* mask, float* out, uint32_t n, bool fresh);

} // namespace Ovidane::PassKernels
