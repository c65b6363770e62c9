#include "math/ExactScalarPsf.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerPool.h"
#include "core/cWorkerThreads.h"

namespace Ovidane {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Nodes and weights of the n-point Gauss–Legendre rule on [0, 1], by Newton's method on
// the Legendre polynomial from the usual first guesses.
void GaussLegendre(int n, std::vector<double>& nodes, std::vector<double>& weights) {
    nodes.assign(std::size_t(n), 0.0);
    weights.assign(std::size_t(n), 0.0);
    for (int i = 0; i < (n + 1) / 2; ++i) {
        double x = std::cos(kPi * (i + 0.75) / (n + 0.5)), derivative = 1.0;
        for (int step = 0; step < 100; ++step) {
            double p0 = 1.0, p1 = x;
            for (int m = 2; m <= n; ++m) {
                const double p2 = ((2.0 * m - 1.0) * x * p1 - (m - 1.0) * p0) / m;
                p0 = p1;
                p1 = p2;
            }
            derivative = n * (x * p1 - p0) / (x * x - 1.0);
            const double dx = p1 / derivative;
            x -= dx;
            if (std::fabs(dx) < 1e-15)
                break;
        }
        const double w = 2.0 / ((1.0 - x * x) * derivative * derivative);
        nodes[std::size_t(i)] = 0.5 * (1.0 - x);
        nodes[std::size_t(n - 1 - i)] = 0.5 * (1.0 + x);
        weights[std::size_t(i)] = weights[std::size_t(n - 1 - i)] = 0.5 * w;
    }
}

// Catmull–Rom interpolation of a profile sampled at i·dr; 0 beyond its end.
inline float Profile(const std::vector<float>& profile, float at) {
    const auto i = static_cast<std::size_t>(at);
    if (i + 2 >= profile.size())
        return 0.0f;
    const float t = at - float(i);
    const float p0 = profile[i == 0 ? 1 : i - 1], p1 = profile[i], p2 = profile[i + 1],
                p3 = profile[i + 2];
    return p1 +
           0.5f * t *
               (p2 - p0 +
                t * (2.0f * p0 - 5.0f * p1 + 4.0f * p2 - p3 + t * (3.0f * (p1 - p2) + p3 - p0)));
}

} // namespace

void GenerateExactScalarPsf(const cFloatImagePtr& psf, const float spacing[3],
                            const cExactPsfOptics& optics) {
    if (!psf)
        throw cException("GenerateExactScalarPsf", "NULL input image in GenerateExactScalarPsf",
                         OVD_ERR_PARAMETER);
    const cImageDimensions size = psf->GetDimensions();
    const double na = optics.numericalAperture, ni = optics.immersionIndex, ns = optics.sampleIndex;
    const double lambda =
        optics.wavelength >= 3.0f ? optics.wavelength / 1000.0 : optics.wavelength;
    if (!(na > 0 && ni >= na && ns > 0 && lambda > 0 && spacing[0] > 0 && spacing[1] > 0 &&
          spacing[2] > 0 && size.Voxels() > 0))
        throw cException("GenerateExactScalarPsf", "Invalid Parameters in GenerateExactScalarPsf",
                         OVD_ERR_PARAMETER);
    const double k = 2.0 * kPi / lambda;
    const double dx = spacing[0], dy = spacing[1], dz = spacing[2];

    // The radial profile reaches the plane's corner, at a quarter of the finer spacing,
    // which the cubic interpolation follows to well within 1e-3 of the peak.
    const uint32_t halfX = size.x / 2, halfY = size.y / 2, halfZ = size.z / 2;
    const double dr = std::min(dx, dy) / 4.0;
    const double rMax = std::hypot(halfX * dx, halfY * dy);
    const auto radii = static_cast<std::size_t>(rMax / dr) + 4;
    const double zMax = std::max(halfZ, size.z - 1 - halfZ) * dz;

    // Enough nodes for the fastest oscillation over the pupil: that of J0 at the corner and
    // that of the defocus at the farthest plane, a node per radian and some to spare.
    const double cEdge = std::sqrt(ni * ni - na * na);
    const double oscillation = k * na * rMax + k * zMax * (ni - cEdge) +
                               k * std::fabs(optics.depth) * std::fabs(ns - ni) +
                               2.0 * kPi * std::fabs(optics.sphericalAberration);
    const int count = std::min(4096, static_cast<int>(oscillation) + 48);
    std::vector<double> rho, weight;
    GaussLegendre(count, rho, weight);
    // The nodes span the rays that reach the sample, up to its critical angle, so that the
    // quadrature never meets the edge of the light inside its interval.
    const double rhoEdge = std::min(1.0, ns / na);
    for (std::size_t j = 0; j < rho.size(); ++j) {
        rho[j] *= rhoEdge;
        weight[j] *= rhoEdge;
    }

    // Per node: the weight ρ·w, cᵢ, and the aberration.
    std::vector<double> ci(rho.size()), aberration(rho.size(), 0.0);
    for (std::size_t j = 0; j < rho.size(); ++j) {
        const double s = na * rho[j];
        ci[j] = std::sqrt(ni * ni - s * s);
        weight[j] *= rho[j];
        aberration[j] = k * optics.depth * (std::sqrt(std::max(0.0, ns * ns - s * s)) - ci[j]) +
                        2.0 * kPi * optics.sphericalAberration * std::pow(rho[j], 4);
    }
    // Least-squares fit of the aberration by a + b·k·cᵢ over the pupil, weighted as it is
    // integrated; what remains is the aberration proper.
    double sw = 0, sc = 0, scc = 0, sa = 0, sac = 0;
    for (std::size_t j = 0; j < rho.size(); ++j) {
        const double w = weight[j], c = k * ci[j];
        sw += w;
        sc += w * c;
        scc += w * c * c;
        sa += w * aberration[j];
        sac += w * aberration[j] * c;
    }
    const double determinant = sw * scc - sc * sc;
    bool aberrated = false;
    if (determinant > 0) {
        const double b = (sw * sac - sc * sa) / determinant, a = (sa - b * sc) / sw;
        for (std::size_t j = 0; j < rho.size(); ++j) {
            aberration[j] -= a + b * k * ci[j];
            aberrated = aberrated || std::fabs(aberration[j]) > 1e-9;
        }
    }

    // J0 times the node's weight once per node and radius, shared by all planes, node by
    // node so that a plane's sums run along contiguous radii. J0 itself comes from a fine
    // table of its argument, whose cubic interpolation is exact to 1e-10.
    const double argumentStep = 1.0 / 64.0, largestArgument = k * na * double(radii) * dr;
    std::vector<double> besselTable(static_cast<std::size_t>(largestArgument / argumentStep) + 4);
    const int threads = cWorkerThreads::Count();
    cWorkerPool::ForEach(int64_t(besselTable.size()), threads, [&](int64_t n, int) {
        besselTable[std::size_t(n)] = ::j0(double(n) * argumentStep);
    });
    const auto bessel = [&](double argument) {
        const double at = argument / argumentStep;
        const auto n = static_cast<std::size_t>(at);
        const double t = at - double(n);
        const double p0 = besselTable[n == 0 ? 1 : n - 1], p1 = besselTable[n],
                     p2 = besselTable[n + 1], p3 = besselTable[n + 2];
        return p1 +
               0.5 * t *
                   (p2 - p0 +
                    t * (2.0 * p0 - 5.0 * p1 + 4.0 * p2 - p3 + t * (3.0 * (p1 - p2) + p3 - p0)));
    };
    std::vector<float> table(radii * rho.size());
    cWorkerPool::ForEach(int64_t(rho.size()), threads, [&](int64_t j, int) {
        for (std::size_t i = 0; i < radii; ++i)
            table[std::size_t(j) * radii + i] = float(
                weight[std::size_t(j)] * bessel(k * na * double(i) * dr * rho[std::size_t(j)]));
    });

    // Plane p lies at z = p·dz, or (p − Z)·dz from the middle on, so that the origin shift
    // puts every plane where its z belongs (the middle one of an even stack lies below
    // focus). Without aberration the planes either side of focus are equal, and those past
    // the middle are copied.
    const auto planeZ = [&](uint32_t p) {
        return (p < size.z - halfZ ? double(p) : double(p) - size.z) * dz;
    };
    std::vector<char> computed(size.z, 0);
    std::vector<double> planeSums(size.z, 0.0);
    std::vector<uint32_t> planes;
    for (uint32_t p = 0; p < size.z; ++p)
        if (aberrated || p <= halfZ)
            planes.push_back(p);
    // Scratch profiles per worker: a task's worker index is never shared at one time.
    std::vector<std::vector<float>> scratch(std::size_t(threads) * 3, std::vector<float>(radii));
    cWorkerPool::ForEach(int64_t(planes.size()), threads, [&](int64_t n, int worker) {
        std::vector<float>& profile = scratch[std::size_t(worker) * 3];
        std::vector<float>& re = scratch[std::size_t(worker) * 3 + 1];
        std::vector<float>& im = scratch[std::size_t(worker) * 3 + 2];
        const uint32_t p = planes[std::size_t(n)];
        const double z = planeZ(p);
        std::fill(re.begin(), re.end(), 0.0f);
        std::fill(im.begin(), im.end(), 0.0f);
        for (std::size_t j = 0; j < rho.size(); ++j) {
            const double phase = k * z * ci[j] + aberration[j];
            const float c = float(std::cos(phase)), s = float(std::sin(phase));
            const float* row = &table[j * radii];
#pragma omp simd
            for (std::size_t i = 0; i < radii; ++i) {
                re[i] += row[i] * c;
                im[i] += row[i] * s;
            }
        }
        for (std::size_t i = 0; i < radii; ++i)
            profile[i] = re[i] * re[i] + im[i] * im[i];
        // A quadrant from the profile, mirrored across the wrap-around.
        const float fx = float(dx / dr), fy = float(dy / dr);
        for (uint32_t y = 0; y <= halfY && y < size.y; ++y) {
            float* line = psf->GetLinePointer(y, p);
            const float ry = float(y) * fy;
            for (uint32_t x = 0; x <= halfX && x < size.x; ++x) {
                const float rx = float(x) * fx;
                line[x] = Profile(profile, std::sqrt(rx * rx + ry * ry));
            }
            for (uint32_t x = halfX + 1; x < size.x; ++x)
                line[x] = line[size.x - x];
        }
        double planeSum = 0;
        for (uint32_t y = 0; y < size.y; ++y) {
            float* line = psf->GetLinePointer(y, p);
            if (y > halfY)
                std::copy_n(psf->GetLinePointer(size.y - y, p), size.x, line);
            for (uint32_t x = 0; x < size.x; ++x)
                planeSum += line[x];
        }
        planeSums[p] = planeSum;
        computed[p] = 1;
    });

    // The sum is combined plane by plane in plane order, whatever the thread count.
    double sum = 0;
    for (uint32_t p = 0; p < size.z; ++p)
        sum += planeSums[computed[p] ? p : size.z - p];
    if (!(sum > 0))
        throw cException("GenerateExactScalarPsf",
                         "PSF without intensity in GenerateExactScalarPsf", OVD_ERR_PARAMETER);
    const float scale = float(1.0 / sum);
    // The integrated planes are scaled, then the mirrored ones copied from them.
    for (const bool mirrored : {false, true}) {
        cWorkerPool::ForEach(int64_t(size.z), threads, [&](int64_t p, int) {
            if (bool(computed[std::size_t(p)]) == mirrored)
                return;
            const uint32_t from = mirrored ? size.z - uint32_t(p) : uint32_t(p);
            for (uint32_t y = 0; y < size.y; ++y) {
                const float* source = psf->GetLinePointer(y, from);
                float* line = psf->GetLinePointer(y, uint32_t(p));
                for (uint32_t x = 0; x < size.x; ++x)
                    line[x] = mirrored ? source[x] : source[x] * scale;
            }
        });
    }
}

} // namespace Ovidane
