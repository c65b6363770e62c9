#pragma once
// Synthetic microscope stacks for whole-run tests: point-like beads seen through a
// Gaussian blur, on a background, optionally with Poisson noise from a fixed seed. Raw
// files as the library reads them: no header, x fastest, then y, then z.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/RawStack.h"

namespace OvidaneTest {

struct BeadStack {
    int w = 0, h = 0, d = 0;
    std::vector<float> v;

    std::size_t Index(int x, int y, int z) const {
        return (std::size_t(z) * std::size_t(h) + std::size_t(y)) * std::size_t(w) + std::size_t(x);
    }
    float at(int x, int y, int z) const { return v[Index(x, y, z)]; }
    float Maximum() const { return *std::max_element(v.begin(), v.end()); }
};

// A stack whose pixel (x, y, z) is f(x, y, z).
inline BeadStack MakeStack(int w, int h, int d, const std::function<float(int, int, int)>& f) {
    BeadStack s{w, h, d, std::vector<float>(std::size_t(w) * h * d)};
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                s.v[s.Index(x, y, z)] = f(x, y, z);
    return s;
}

struct Bead {
    float x, y, z, brightness;
};

// Beads on a regular grid, `step` pixels apart in x and y, in every `zStep`-th slice,
// shifted so that no two rows look alike.
inline std::vector<Bead> GridOfBeads(int w, int h, int d, int step, int zStep, float brightness) {
    std::vector<Bead> beads;
    int row = 0;
    for (int y = step / 2; y < h; y += step, ++row)
        for (int x = step / 2 + (row % 3) * 2; x < w; x += step)
            for (int z = d / 2 % zStep; z < d; z += zStep)
                beads.push_back({float(x), float(y), float(z), brightness});
    return beads;
}

// Each bead spreads as a Gaussian of the given widths (pixels), normalised to its
// brightness; the background is added everywhere. With `poissonSeed` non-zero every pixel
// is replaced by a Poisson draw of its value. Values are rounded to whole counts so that
// the same stack can be written as 8-bit, 16-bit or float without loss.
inline BeadStack MakeBeadStack(int w, int h, int d, const std::vector<Bead>& beads, float sigmaXY,
                               float sigmaZ, float background, unsigned poissonSeed = 0) {
    BeadStack s{w, h, d, std::vector<float>(std::size_t(w) * h * d, background)};
    const float norm = 1.0f / (std::pow(2.0f * 3.14159265f, 1.5f) * sigmaXY * sigmaXY * sigmaZ);
    const int rx = int(std::ceil(4 * sigmaXY)), rz = int(std::ceil(4 * sigmaZ));
    for (const Bead& b : beads)
        for (int z = std::max(0, int(b.z) - rz); z <= std::min(d - 1, int(b.z) + rz); ++z)
            for (int y = std::max(0, int(b.y) - rx); y <= std::min(h - 1, int(b.y) + rx); ++y)
                for (int x = std::max(0, int(b.x) - rx); x <= std::min(w - 1, int(b.x) + rx); ++x) {
                    const float dx = (x - b.x) / sigmaXY, dy = (y - b.y) / sigmaXY,
                                dz = (z - b.z) / sigmaZ;
                    s.v[s.Index(x, y, z)] +=
                        b.brightness * norm * std::exp(-0.5f * (dx * dx + dy * dy + dz * dz));
                }
    std::mt19937 random(poissonSeed);
    for (float& p : s.v) {
        if (poissonSeed != 0)
            p = float(std::poisson_distribution<int>(double(p))(random));
        p = std::round(p);
    }
    return s;
}

// A PSF file's contents: one Gaussian of the given widths centred in a w by h by d volume,
// summing to 1.
inline BeadStack MakeGaussianPsf(int w, int h, int d, float sigmaXY, float sigmaZ) {
    BeadStack s{w, h, d, std::vector<float>(std::size_t(w) * h * d, 0.0f)};
    double sum = 0;
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const float dx = (x - w / 2) / sigmaXY, dy = (y - h / 2) / sigmaXY,
                            dz = (z - d / 2) / sigmaZ;
                const float p = std::exp(-0.5f * (dx * dx + dy * dy + dz * dz));
                s.v[s.Index(x, y, z)] = p;
                sum += p;
            }
    for (float& p : s.v)
        p = float(p / sum);
    return s;
}

} // namespace OvidaneTest
