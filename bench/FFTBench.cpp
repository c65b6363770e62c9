// The transform service against bare FFTW.
//
// Each benchmark times one operation of the service and, in the same iteration, the bare
// FFTW transforms it is built on: plain real-to-complex and complex-to-real plans of the
// same size, with the service's planner flags and thread count. The reported time is the
// service's; the counters give the bare time and the ratio service / bare, both measured
// in the same run, so load on the machine affects the two alike.
//
//   ForwardInverse  ForwardHalfSpectrum + InverseHalfSpectrum  vs  r2c + c2r
//   WienerFilter    WienerFilter                               vs  2 r2c + c2r
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>

#include "BareTransforms.h"
#include "core/cMessageSink.h"
#include "core/cWorkerThreads.h"
#include "math/cFFTFFTW.h"
#include "math/cFFTManager.h"

using namespace Ovidane;

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

cFloatImagePtr RandomImage(const cImageDimensions& size, unsigned seed) {
    cFloatImagePtr image(new cFloatImage(size, Contiguous3D, "FFTBench"));
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    float* pixels = image->GetSlicePointer(0);
    for (uint64_t i = 0; i < size.Voxels(); ++i)
        pixels[i] = value(generator);
    return image;
}

cImageDimensions SizeOf(const benchmark::State& state) {
    return {uint32_t(state.range(0)), uint32_t(state.range(1)), uint32_t(state.range(2))};
}

cCountedPtr<cFFTFFTW> PlannedInstance(const cImageDimensions& size) {
    cFFTManager& fft = cFFTManager::Instance();
    fft.ReleaseThreadInstances();
    fft.AddInstance(size, 1, 3);
    fft.InitializePlans();
    return fft.GetInstance(size).StaticCast<cFFTFFTW>();
}

void Report(benchmark::State& state, double service, double bare) {
    state.counters["bare_ms"] = 1e3 * bare / double(state.iterations());
    state.counters["ratio"] = service / bare;
    state.counters["threads"] = cWorkerThreads::Count();
}

void ForwardInverse(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    const cCountedPtr<cFFTFFTW> engine = PlannedInstance(size);
    cImageDimensions packedSize;
    engine->GetPackedDimensions(size, packedSize);
    const cFloatImagePtr image = RandomImage(size, 1), result = RandomImage(size, 2);
    const cFloatImagePtr packed = RandomImage(packedSize, 3);
    BareTransforms bare(size);
    // One untimed round first, so that neither side pays for touching fresh pages.
    engine->ForwardHalfSpectrum(image, packed);
    engine->InverseHalfSpectrum(packed, result);
    bare.Forward(false);
    bare.Inverse();
    double serviceTotal = 0, bareTotal = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        engine->ForwardHalfSpectrum(image, packed);
        engine->InverseHalfSpectrum(packed, result);
        const double service = Seconds(start);
        state.SetIterationTime(service);
        serviceTotal += service;
        const Clock::time_point bareStart = Clock::now();
        bare.Forward(false);
        bare.Inverse();
        bareTotal += Seconds(bareStart);
    }
    Report(state, serviceTotal, bareTotal);
    cFFTManager::Instance().ReleaseThreadInstances();
}

void WienerFilter(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    const cCountedPtr<cFFTFFTW> engine = PlannedInstance(size);
    const cFloatImagePtr image = RandomImage(size, 1), psf = RandomImage(size, 2);
    const cFloatImagePtr result = RandomImage(size, 3);
    BareTransforms bare(size);
    engine->WienerFilter(image, psf, result, 0.01f);
    bare.Forward(false);
    bare.Forward(true);
    bare.Inverse();
    double serviceTotal = 0, bareTotal = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        engine->WienerFilter(image, psf, result, 0.01f);
        const double service = Seconds(start);
        state.SetIterationTime(service);
        serviceTotal += service;
        const Clock::time_point bareStart = Clock::now();
        bare.Forward(false);
        bare.Forward(true);
        bare.Inverse();
        bareTotal += Seconds(bareStart);
    }
    Report(state, serviceTotal, bareTotal);
    cFFTManager::Instance().ReleaseThreadInstances();
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Args({256, 256, 64})->Args({288, 288, 80})->Args({320, 320, 80});
    benchmark->Args({512, 512, 128});
    benchmark->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(ForwardInverse)->Apply(Sizes);
BENCHMARK(WienerFilter)->Apply(Sizes);

} // namespace

int main(int argc, char** argv) {
    // The memory manager reports every image it hands out; keep the table readable.
    cMessageSink::Silence();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
