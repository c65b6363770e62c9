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

// out[t] = the weighted sum of in along the axis, whose samples lie `stride` floats apart.
inline float Combine(const cAxisWeights& axis, uint32_t t, const float* in, std::size_t stride) {
    float sum = 0.0f;
    const uint32_t first = axis.first[t];
    for (uint32_t k = axis.begin[t]; k < axis.begin[t + 1]; ++k)
        sum += axis.weights[k] * in[(first + k - axis.begin[t]) * stride];
    return sum;
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

    // Along x into rows of the new width, then along y, then along z into the destination.
    const std::string name = "ResampleAboutCentre";
    cFloatImagePtr rows(new cOvdImage<float>({T.x, M.y, M.z}, name));
    ImageWalk::ForEachLine(rows->GetDimensions(), [&](uint32_t y, uint32_t z) {
        const float* in = source->GetLinePointer(y, z);
        float* out = rows->GetLinePointer(y, z);
        for (uint32_t t = 0; t < T.x; ++t)
            out[t] = Combine(wx, t, in, 1);
    });
    cFloatImagePtr planes(new cOvdImage<float>({T.x, T.y, M.z}, name));
    ImageWalk::ForEachLine(planes->GetDimensions(), [&](uint32_t t, uint32_t z) {
        float* out = planes->GetLinePointer(t, z);
        std::fill(out, out + T.x, 0.0f);
        const uint32_t first = wy.first[t];
        for (uint32_t k = wy.begin[t]; k < wy.begin[t + 1]; ++k) {
            const float w = wy.weights[k];
            const float* in = rows->GetLinePointer(first + k - wy.begin[t], z);
            for (uint32_t x = 0; x < T.x; ++x)
                out[x] += w * in[x];
        }
    });
    ImageWalk::ForEachLine(T, [&](uint32_t y, uint32_t t) {
        float* out = destination->GetLinePointer(y, t);
        std::fill(out, out + T.x, 0.0f);
        const uint32_t first = wz.first[t];
        for (uint32_t k = wz.begin[t]; k < wz.begin[t + 1]; ++k) {
            const float w = wz.weights[k];
            const float* in = planes->GetLinePointer(y, first + k - wz.begin[t]);
            for (uint32_t x = 0; x < T.x; ++x)
                out[x] += w * in[x];
        }
    });
}

} // namespace Ovidane
