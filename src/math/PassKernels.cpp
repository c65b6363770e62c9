#include "math/PassKernels.h"

#include <algorithm>
#include <cmath>

#include "math/FastLogExp.h"

// The loader resolves each kernel once, by the processor's features.
#define OVD_PROCESSOR_LEVELS __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))

namespace Ovidane::PassKernels {
namespace {

// Pixels handled at a time: a loop with one heavy expression and one select is all the
// compiler turns into vector code, so a kernel runs two loops over each chunk, and a chunk
// stays in the first-level cache between them.
constexpr uint32_t kChunk = 256;
constexpr uint32_t kLanes = 8;

} // namespace

OVD_PROCESSOR_LEVELS
void MultiplySpectrumLine(const float* a, const float* b, float* out, uint64_t values,
                          float scale) {
    for (uint64_t i = 0; i < values; ++i) {
        const float ar = a[2 * i], ai = a[2 * i + 1];
        const float br = b[2 * i], bi = b[2 * i + 1];
        out[2 * i] = (ar * br - ai * bi) * scale;
        out[2 * i + 1] = (ar * bi + ai * br) * scale;
    }
}

OVD_PROCESSOR_LEVELS
void MultiplyConjugateSpectrumLine(const float* a, const float* b, float* out, uint64_t values,
                                   float scale) {
    for (uint64_t i = 0; i < values; ++i) {
        const float ar = a[2 * i], ai = a[2 * i + 1];
        const float br = b[2 * i], bi = b[2 * i + 1];
        out[2 * i] = (ar * br + ai * bi) * scale;
        out[2 * i + 1] = (ai * br - ar * bi) * scale;
    }
}

OVD_PROCESSOR_LEVELS
void ExtrapolationGradientLine(uint32_t n, const float* __restrict x, const float* __restrict m,
                               const float* __restrict last, float* __restrict p,
                               float* __restrict h, cGradientSums& sums) {
    double cross[kLanes] = {}, square[kLanes] = {};
    for (uint32_t start = 0; start < n; start += kChunk) {
        const uint32_t count = std::min(kChunk, n - start);
        for (uint32_t i = start; i < start + count; ++i) {
            const float update = x[i] * m[i];
            const float step = FastMath::Log(m[i]);
            p[i] = update;
            h[i] = update * (m[i] > 0.0f ? step : 0.0f);
        }
        // Lane i % 8 takes pixel i of the line, whatever the chunk.
        uint32_t i = start;
        for (; i + kLanes <= start + count; i += kLanes)
            for (uint32_t lane = 0; lane < kLanes; ++lane) {
                const double previous = last[i + lane];
                cross[lane] += static_cast<double>(h[i + lane]) * previous;
                square[lane] += previous * previous;
            }
        for (; i < start + count; ++i) {
            const double previous = last[i];
            cross[i % kLanes] += static_cast<double>(h[i]) * previous;
            square[i % kLanes] += previous * previous;
        }
    }
    double lineCross = 0, lineSquare = 0;
    for (uint32_t lane = 0; lane < kLanes; ++lane) {
        lineCross += cross[lane];
        lineSquare += square[lane];
    }
    sums.cross += lineCross;
    sums.lastSquare += lineSquare;
}

OVD_PROCESSOR_LEVELS
void ExtrapolateLine(uint32_t n, const float* p, const float* q, float* out, float alpha,
                     float threshold, float maxRatio, float floor) {
    const float high = maxRatio, low = 1.0f / maxRatio;
    float factor[kChunk];
    for (uint32_t start = 0; start < n; start += kChunk) {
        const uint32_t count = std::min(kChunk, n - start);
        const float* pc = p + start;
        const float* qc = q + start;
        for (uint32_t i = 0; i < count; ++i) {
            const float r = std::min(std::max(pc[i] / qc[i], low), high);
            factor[i] = FastMath::Exp(alpha * FastMath::Log(r));
        }
        float* oc = out + start;
        for (uint32_t i = 0; i < count; ++i) {
            const float a = pc[i], b = qc[i];
            const float value = (b <= threshold || b == 0.0f) ? a : a * factor[i];
            oc[i] = value < floor ? floor : value;
        }
    }
}

OVD_PROCESSOR_LEVELS
void SquareRootLine(uint32_t n, const float* __restrict in, float* __restrict out) {
    for (uint32_t i = 0; i < n; ++i)
        out[i] = in[i] <= 0.0f ? 0.0f : std::sqrt(in[i]);
}

OVD_PROCESSOR_LEVELS
void RoughnessLine(uint32_t n, float* e, const float* r, const float* above, const float* below,
                   const float* previous, const float* next, float beta, float guard) {
    if (!previous || !next) {
        const float divisor = 4 * beta + 1;
        for (uint32_t x = 1; x + 1 < n; ++x) {
            const float s4 = r[x - 1] + r[x + 1] + above[x] + below[x];
            const float updated = (beta * r[x] * s4 + e[x]) / divisor;
            e[x] = updated <= guard ? guard : updated;
        }
        return;
    }
    const float divisor = 6 * beta + 1;
    for (uint32_t x = 1; x + 1 < n; ++x) {
        const float s6 = r[x - 1] + r[x + 1] + above[x] + below[x] + next[x] + previous[x];
        const float updated = (beta * r[x] * s6 + e[x]) / divisor;
        e[x] = updated <= guard ? guard : updated;
    }
}

} // namespace Ovidane::PassKernels
