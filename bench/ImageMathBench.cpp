// The main element-wise operations of the plain image math, each against the cost of
// moving the same bytes with memcpy in the same run. The counter x_memcpy is the time of
// one operation divided by the time that memcpy, spread over the same worker threads,
// needs to read and write as many bytes as the operation reads and writes; 1.0 means the
// operation runs at copy speed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/cWorkerThreads.h"
#include "math/cImageMathGeneric.h"

using namespace Ovidane;

namespace {

using Clock = std::chrono::steady_clock;

cFloatImagePtr MakeImage(const cImageDimensions& size, float low, float high) {
    cFloatImagePtr image(new cFloatImage(size, Contiguous3D, "bench"));
    std::mt19937 random(7);
    std::uniform_real_distribution<float> value(low, high);
    float* p = image->GetSlicePointer(0);
    for (uint64_t i = 0; i < size.Voxels(); ++i)
        p[i] = value(random);
    return image;
}

// Seconds for memcpy to read and write `traffic` bytes in all (half read, half written),
// in as many pieces as there are worker threads; the best of several tries.
double MemcpySeconds(std::size_t traffic) {
    static std::map<std::size_t, double> measured;
    if (const auto known = measured.find(traffic); known != measured.end())
        return known->second;
    const std::size_t bytes = traffic / 2;
    const std::unique_ptr<char[]> from(new char[bytes]), to(new char[bytes]);
    std::memset(from.get(), 1, bytes);
    std::memset(to.get(), 0, bytes);
    const int threads = cWorkerThreads::Count();
    const std::size_t piece = (bytes + threads - 1) / threads;
    double best = 1e30;
    for (int attempt = 0; attempt < 6; ++attempt) {
        const auto start = Clock::now();
#pragma omp parallel for num_threads(threads) schedule(static)
        for (int t = 0; t < threads; ++t) {
            const std::size_t begin = std::min(bytes, t * piece);
            const std::size_t end = std::min(bytes, begin + piece);
            std::memcpy(to.get() + begin, from.get() + begin, end - begin);
        }
        benchmark::ClobberMemory();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        if (attempt > 0) // the first pass faults the pages in
            best = std::min(best, seconds);
    }
    return measured[traffic] = best;
}

// Runs `operation` in the timing loop and reports its bytes and its ratio to memcpy.
template <class Operation>
void Measure(benchmark::State& state, std::size_t traffic, Operation&& operation) {
    double seconds = 0.0;
    for (auto _ : state) {
        const auto start = Clock::now();
        operation();
        seconds += std::chrono::duration<double>(Clock::now() - start).count();
    }
    const double perCall = seconds / static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * traffic));
    state.counters["x_memcpy"] = perCall / MemcpySeconds(traffic);
    state.counters["threads"] = cWorkerThreads::Count();
}

cImageDimensions SizeOf(const benchmark::State& state) {
    return {static_cast<uint32_t>(state.range(0)), static_cast<uint32_t>(state.range(1)),
            static_cast<uint32_t>(state.range(2))};
}

std::size_t Bytes(const cImageDimensions& size) {
    return size.Voxels() * sizeof(float);
}

void AddImage(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    cImageMathGeneric math;
    const cFloatImagePtr a = MakeImage(size, -1, 1), b = MakeImage(size, -1, 1),
                         out = MakeImage(size, 0, 0);
    Measure(state, 3 * Bytes(size), [&] { math.AddImage(a, b, out); });
}

void MultiplyImage(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    cImageMathGeneric math;
    const cFloatImagePtr a = MakeImage(size, -1, 1), b = MakeImage(size, -1, 1),
                         out = MakeImage(size, 0, 0);
    Measure(state, 3 * Bytes(size), [&] { math.MultiplyImage(a, b, out); });
}

// In place, as the restorations mostly call it.
void MultiplyImageByConstant(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    cImageMathGeneric math;
    const cFloatImagePtr a = MakeImage(size, -1, 1);
    Measure(state, 2 * Bytes(size), [&] { math.MultiplyImageByConstant(a, 1.0f, a); });
}

void DivideImage(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    cImageMathGeneric math;
    const cFloatImagePtr a = MakeImage(size, -1, 1), b = MakeImage(size, 0.5f, 2),
                         out = MakeImage(size, 0, 0);
    Measure(state, 3 * Bytes(size), [&] { math.DivideImage(a, b, out); });
}

// Reads the image once: the memcpy reference copies half an image, the same bytes in all.
void SumImage(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    cImageMathGeneric math;
    const cFloatImagePtr a = MakeImage(size, -1, 1);
    Measure(state, Bytes(size), [&] { benchmark::DoNotOptimize(math.SumImage(a)); });
}

// Interleaved spectra of the given size: x / 2 complex values per line.
void MultiplyComplexImage(benchmark::State& state) {
    const cImageDimensions size = SizeOf(state);
    cImageMathGeneric math;
    const cFloatImagePtr a = MakeImage(size, -1, 1), b = MakeImage(size, -1, 1),
                         out = MakeImage(size, 0, 0);
    Measure(state, 3 * Bytes(size), [&] { math.MultiplyComplexImage(a, b, out, 0.5f, 1); });
}

void Sizes(benchmark::internal::Benchmark* bench) {
    bench->Args({256, 256, 64})->Args({512, 512, 128})->Unit(benchmark::kMillisecond);
    bench->UseRealTime();
}

} // namespace

BENCHMARK(AddImage)->Apply(Sizes);
BENCHMARK(MultiplyImage)->Apply(Sizes);
BENCHMARK(MultiplyImageByConstant)->Apply(Sizes);
BENCHMARK(DivideImage)->Apply(Sizes);
BENCHMARK(SumImage)->Apply(Sizes);
BENCHMARK(MultiplyComplexImage)->Apply(Sizes);

BENCHMARK_MAIN();
