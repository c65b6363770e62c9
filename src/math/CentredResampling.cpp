#include "math/CentredResampling.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "core/cException.h"
#include "math/ImageWalk.h"

namespace Ovidane {
namespace {

// The sparse weights of one axis: destination pixel t sums weights[k]·p[first[t] + k - begin[t]]
// for k from begin[t] to begin[t + 1].
struct cAxisWeights {
    std::vector<uint32_t> first;
    std::vector<uint32_t> begin{0};
    std::vector<float> weights;

    void Add(uint32_t t, uint32_t j, double w) {
        if (w <= 0.0)
            return;
        if (begin.back() == weights.size())
            first[t] = j;
        weights.push_back(float(w));
    }
};

// Weights from M source samples at spacing q to T destination pixels at spacing v, centres
// at M/2 and T/2. Source sample j stands for the stretch [j - 1/2, j + 1/2] and is 0 beyond
// the samples.
cAxisWeights AxisWeights(uint32_t M, float q, uint32_t T, float v) {
    cAxisWeights axis;
    axis.first.assign(T, 0);
    const double r = double(v) / double(q); // destination pixel width in source pixels
    for (uint32_t t = 0; t < T; ++t) {
        if (T == 1 && M > 1) { // one plane holds them all
            for (uint32_t j = 0; j < M; ++j)
                axis.Add(t, j, 1.0);
        } else {
            const double s = double(M / 2) + (double(t) - double(T / 2)) * r;
            if (r <= 1.0) {
                // Linear between the samples that enclose s, none outside the first and last.
                if (s >= 0.0 && s <= double(M - 1)) {
                    const auto j = uint32_t(std::floor(s));
                    const double f = s - j;
                    axis.Add(t, j, (1.0 - f) * r);
                    if (j + 1 < M)
                        axis.Add(t, j + 1, f * r);
                }
            } else {
                const double low = s - 0.5 * r, high = s + 0.5 * r;
                const double from = std::max(0.0, std::floor(low + 0.5));
                const double to = std::min(double(M) - 1.0, std::ceil(high - 0.5));
                for (double j = from; j <= to; ++j)
                    axis.Add(t, uint32_t(j), std::min(high, j + 0.5) - std::max(low, j - 0.5));
            }
        }
        axis.begin.push_back(uint32_t(axis.weights.size()));
    }
    return axis;
}

// One pass along `axis` (0 x, 1 y, 2 z) from `in` into `out`, which differs from it in
// that axis's size only. Every output line is made from whole input lines (along x, from
// the samples of one line), so a line pointer is fetched once per line.
void Pass(int axis, const cAxisWeights& w, const cFloatImagePtr& in, const cFloatImagePtr& out) {
    const cImageDimensions size = out->GetDimensions();
    ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
        float* line = out->GetLinePointer(y, z);
        if (axis == 0) {
            const float* source = in->GetLinePointer(y, z);
            for (uint32_t t = 0; t < size.x; ++t) {
                float sum = 0.0f;
                for (uint32_t k = w.begin[t]; k < w.begin[t + 1]; ++k)
                    sum += w.weights[k] * source[w.first[t] + k - w.begin[t]];
                line[t] = sum;
            }
            return;
        }
        const uint32_t t = axis == 1 ? y : z;
        std::fill(line, line + size.x, 0.0f);
        for (uint32_t k = w.begin[t]; k < w.begin[t + 1]; ++k) {
            const uint32_t j = w.first[t] + k - w.begin[t];
            const float weight = w.weights[k];
            const float* source = axis == 1 ? in->GetLinePointer(j, z) : in->GetLinePointer(y, j);
            for (uint32_t x = 0; x < size.x; ++x)
                line[x] += weight * source[x];
        }
    });
}

} // namespace

void ResampleAboutCentre(const cFloatImagePtr& source, const float sourceSpacing[3],
                         const cFloatImagePtr& destination, const float destinationSpacing[3]) {
    if (!source || !destination)
        throw cException("ResampleAboutCentre", "NULL input image in ResampleAboutCentre",
                         OVD_ERR_PARAMETER);
    const cImageDimensions M = source->GetDimensions();
    const cImageDimensions T = destination->GetDimensions();
    const cAxisWeights wx = AxisWeights(M.x, sourceSpacing[0], T.x, destinationSpacing[0]);
    const cAxisWeights wy = AxisWeights(M.y, sourceSpacing[1], T.y, destinationSpacing[1]);
    const cAxisWeights wz = AxisWeights(M.z, sourceSpacing[2], T.z, destinationSpacing[2]);

    // Axes that shrink go first and those that grow last, so that no partial result is
    // larger than the source or the destination, whatever the two sizes.
    const cAxisWeights* weights[3] = {&wx, &wy, &wz};
    const uint32_t from[3] = {M.x, M.y, M.z}, to[3] = {T.x, T.y, T.z};
    int order[3] = {0, 1, 2};
    std::stable_sort(order, order + 3, [&](int a, int b) {
        return double(to[a]) / from[a] < double(to[b]) / from[b];
    });
    cFloatImagePtr current = source;
    uint32_t size[3] = {M.x, M.y, M.z};
    for (int n = 0; n < 3; ++n) {
        const int axis = order[n];
        size[axis] = to[axis];
        cFloatImagePtr next = n == 2 ? destination
                                     : cFloatImagePtr(new cOvdImage<float>(
                                           {size[0], size[1], size[2]}, "ResampleAboutCentre"));
        Pass(axis, *weights[axis], current, next);
        current = next;
    }
}

} // namespace Ovidane
