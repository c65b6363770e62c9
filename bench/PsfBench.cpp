// The theoretical PSF with spherical aberration, the one computation of an aberration
// search's evaluation that changes with the candidate: a 288 x 288 x 80 subvolume at
// 0.1 um x 0.1 um x 0.25 um (two sub-pixels per pixel at NA 1.3, 520 nm), with and without
// aberration (without it, half the planes are mirrored copies). The exact scalar model of
// the same size and optics is set against the specified one and against one bare forward
// transform of that size.
#include <benchmark/benchmark.h>

#include "BareTransforms.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"
#include "math/ExactScalarPsf.h"

using namespace Ovidane;

namespace {

void TheoreticalPsf(benchmark::State& state) {
    const float aberration = float(state.range(0));
    const cImageDimensions size{288, 288, 80};
    cTheoreticalPsfFirstGuessWithSphericalAberration guess(0.1f, 0.1f, 0.25f, size, 1.3f, 1.515f,
                                                           0.52f, aberration, 1.0f, 0);
    cFloatImagePtr psf(new cFloatImage(size, Contiguous3D, "bench")), original;
    for (auto _ : state) {
        guess.Apply(psf, original);
        benchmark::DoNotOptimize(psf->GetSlicePointer(0));
    }
}

BENCHMARK(TheoreticalPsf)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void ExactPsf(benchmark::State& state) {
    const cImageDimensions size{288, 288, 80};
    const float spacing[3] = {0.1f, 0.1f, 0.25f};
    cExactPsfOptics optics;
    optics.numericalAperture = 1.3f;
    optics.sphericalAberration = float(state.range(0));
    cFloatImagePtr psf(new cFloatImage(size, Contiguous3D, "bench"));
    for (auto _ : state) {
        GenerateExactScalarPsf(psf, spacing, optics);
        benchmark::DoNotOptimize(psf->GetSlicePointer(0));
    }
}

BENCHMARK(ExactPsf)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void ForwardTransform(benchmark::State& state) {
    BareTransforms transforms({288, 288, 80});
    for (auto _ : state)
        transforms.Forward(false);
}

BENCHMARK(ForwardTransform)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
