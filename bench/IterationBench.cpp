// One pass of ML-EM against the bare FFTW transforms it is built on.
//
// A pass with the vector extrapolation is two convolutions with a PSF whose transform is
// made once: two forward and two inverse real transforms. The benchmark times the pass as
// a run makes it (optimization, extrapolation, the 1e-20 floor, Good's roughness step) and,
// in the same iteration, two r2c and two c2r bare transforms of the same size with the
// service's planner flags and threads. Counters: the bare time, the ratio pass / bare,
// nanoseconds per voxel per pass, and the images the passes asked the pools for (0: a pass
// allocates nothing).
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <utility>

#include "BareTransforms.h"
#include "core/cMessageSink.h"
#include "core/cWorkerThreads.h"
#include "decon/cGoodsRoughnessNoiseSmoothing.h"
#include "decon/cMlem2DBlindMethodOptimization.h"
#include "decon/cMlem2DNonBlindMethodOptimization.h"
#include "decon/cNoAcceleration.h"
#include "decon/cMlemNonBlindMethodOptimization.h"
#include "decon/cVectorExtrapolationAcceleration.h"
#include "image/cMemoryManagerContainer.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

cFloatImagePtr RandomImage(const cImageDimensions& size, unsigned seed, float low, float high) {
    cFloatImagePtr image(new cFloatImage(size, Contiguous3D, "IterationBench"));
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(low, high);
    float* pixels = image->GetSlicePointer(0);
    for (uint64_t i = 0; i < size.Voxels(); ++i)
        pixels[i] = value(generator);
    return image;
}

// The transform service with one planned instance of `size` on this thread.
cFFTManager& PlannedTransforms(const cImageDimensions& size) {
    cFFTManager& fft = cFFTManager::Instance();
    fft.ReleaseThreadInstances();
    fft.AddInstance(size, 1, 3);
    fft.InitializePlans();
    return fft;
}

// Times `work` in every iteration, and `bare` right after it; sets the iteration's time to
// the work's and answers the two totals.
template <class Work, class Bare>
std::pair<double, double> TimeAgainstBare(benchmark::State& state, Work&& work, Bare&& bare) {
    double workTotal = 0, bareTotal = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        work();
        const double seconds = Seconds(start);
        state.SetIterationTime(seconds);
        workTotal += seconds;
        const Clock::time_point bareStart = Clock::now();
        bare();
        bareTotal += Seconds(bareStart);
    }
    return {workTotal, bareTotal};
}

void MlemPass(benchmark::State& state) {
    const cImageDimensions size{uint32_t(state.range(0)), uint32_t(state.range(1)),
                                uint32_t(state.range(2))};
    cFFTManager& fft = PlannedTransforms(size);
    cFloatImagePtr original = RandomImage(size, 1, 90.0f, 400.0f);
    cFloatImagePtr object = RandomImage(size, 2, 90.0f, 400.0f);
    cFloatImagePtr psf = RandomImage(size, 3, 0.0f, 1.0f);
    cImageMathManager::Instance().GetImageMath()->NormalizeImage(psf, psf, 0, size.z - 1);

    cCountedPtr<cMlemNonBlindMethodOptimization> optimization = new cMlemNonBlindMethodOptimization();
    cAccelerationPtr acceleration = new cVectorExtrapolationAcceleration();
    optimization->SetAcceleration(acceleration);
    optimization->SetDimensions(size);
    optimization->Initialize();
    cCountedPtr<cGoodsRoughnessNoiseSmoothing> roughness = new cGoodsRoughnessNoiseSmoothing(0.5f);
    roughness->Initialize(size);
    int32_t pass = 0;
    auto runPass = [&] {
        acceleration->Apply(pass);
        optimization->Apply(object, original, psf);
        roughness->Apply(object, uint32_t(++pass));
    };
    BareTransforms bare(size);
    // Two untimed passes: the working images and the kept PSF transform are made there.
    runPass();
    runPass();
    bare.Forward(false);
    bare.Inverse();
    const uint64_t imagesBefore = cMemoryManagerContainer::AllocationCount();
    const auto [passTotal, bareTotal] = TimeAgainstBare(state, runPass, [&] {
        for (int i = 0; i < 2; ++i) {
            bare.Forward(false);
            bare.Inverse();
        }
    });
    const double passes = double(state.iterations());
    state.counters["bare_ms"] = 1e3 * bareTotal / passes;
    state.counters["ratio"] = passTotal / bareTotal;
    state.counters["ns_per_voxel"] = 1e9 * passTotal / passes / double(size.Voxels());
    state.counters["images_per_pass"] =
        double(cMemoryManagerContainer::AllocationCount() - imagesBefore) / passes;
    state.counters["threads"] = cWorkerThreads::Count();
    fft.ReleaseThreadInstances();
}

BENCHMARK(MlemPass)
    ->Args({128, 128, 32})
    ->Args({288, 288, 80})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// One convolution with a kept PSF, as a pass makes two, against one bare forward and one
// bare inverse transform of the same size.
void KeptKernelConvolution(benchmark::State& state) {
    const cImageDimensions size{uint32_t(state.range(0)), uint32_t(state.range(1)),
                                uint32_t(state.range(2))};
    cFFTManager& fft = PlannedTransforms(size);
    cFloatImagePtr image = RandomImage(size, 1, 90.0f, 400.0f);
    cFloatImagePtr result = RandomImage(size, 2, 0.0f, 1.0f);
    cFloatImagePtr kept = RandomImage(cImageDimensions{size.x + 2, size.y, size.z}, 3, 0, 1);
    fft.KeepKernel(RandomImage(size, 4, 0.0f, 1.0f), kept);
    BareTransforms bare(size);
    const auto convolve = [&] { fft.ConvolveKept(image, kept, result, 2); };
    convolve();
    const auto [convolutionTotal, bareTotal] = TimeAgainstBare(state, convolve, [&] {
        bare.Forward(false);
        bare.Inverse();
    });
    state.counters["bare_ms"] = 1e3 * bareTotal / double(state.iterations());
    state.counters["ratio"] = convolutionTotal / bareTotal;
    fft.ReleaseThreadInstances();
}

BENCHMARK(KeptKernelConvolution)
    ->Args({288, 288, 80})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// One pass of a plane method as a run makes it (Good's step included) against four bare
// transforms of the plane: ML-EM of a plane with one update (two convolutions with the kept
// PSF transform: four transforms) and the blind method with one PSF and one object update
// (two transforms of the estimates held still and eight of the convolutions: ten).
void PlanePass(benchmark::State& state) {
    const cImageDimensions size{uint32_t(state.range(0)), uint32_t(state.range(0)), 1};
    const bool blind = state.range(1) != 0;
    cFFTManager& fft = PlannedTransforms(size);
    cFloatImagePtr original = RandomImage(size, 1, 90.0f, 400.0f);
    cFloatImagePtr object = RandomImage(size, 2, 90.0f, 400.0f);
    cFloatImagePtr psf = RandomImage(size, 3, 0.0f, 1.0f);
    cOptimizationPtr optimization;
    if (blind) {
        cCountedPtr<cMlem2DBlindMethodOptimization> both = new cMlem2DBlindMethodOptimization(1, 1);
        both->SetPsfAcceleration(new cNoAcceleration());
        optimization = both;
    } else {
        optimization = new cMlem2DNonBlindMethodOptimization(1);
    }
    cAccelerationPtr acceleration = new cVectorExtrapolationAcceleration();
    optimization->SetAcceleration(acceleration);
    optimization->SetDimensions(size);
    optimization->Initialize();
    cCountedPtr<cGoodsRoughnessNoiseSmoothing> roughness = new cGoodsRoughnessNoiseSmoothing(0.5f);
    roughness->Initialize(size);
    int32_t pass = 0;
    auto runPass = [&] {
        acceleration->Apply(pass);
        optimization->Apply(object, original, psf);
        roughness->Apply(object, uint32_t(++pass));
    };
    BareTransforms bare(size);
    runPass();
    runPass();
    const auto [passTotal, bareTotal] = TimeAgainstBare(state, runPass, [&] {
        for (int i = 0; i < 2; ++i) {
            bare.Forward(false);
            bare.Inverse();
        }
    });
    state.counters["four_bare_ms"] = 1e3 * bareTotal / double(state.iterations());
    state.counters["ratio"] = passTotal / bareTotal;
    state.counters["threads"] = cWorkerThreads::Count();
    fft.ReleaseThreadInstances();
}

BENCHMARK(PlanePass)
    ->ArgNames({"size", "blind"})
    ->Args({1024, 0})
    ->Args({1024, 1})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    cMessageSink::Silence();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
