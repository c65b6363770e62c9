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

// Two buffers that memcpy moves `traffic` bytes between in all (half read, half written),
// kept for the whole run so that every benchmark of one size copies warm pages.
class cCopyReference {
public:
    static cCopyReference& For(std::size_t traffic) {
        static std::map<std::size_t, std::unique_ptr<cCopyReference>> references;
        auto& reference = references[traffic];
        if (!reference)
            reference.reset(new cCopyReference(traffic / 2));
        return *reference;
    }

    // One copy, in as many pieces as there are worker threads, as the operations run.
    void Copy() {
        const int threads = cWorkerThreads::Count();
        const std::size_t piece = (mBytes + threads - 1) / threads;
#pragma omp parallel for num_threads(threads) schedule(static)
        for (int t = 0; t < threads; ++t) {
            const std::size_t begin = std::min(mBytes, t * piece);
            const std::size_t end = std::min(mBytes, begin + piece);
            std::memcpy(mTo.get() + begin, mFrom.get() + begin, end - begin);
        }
        benchmark::ClobberMemory();
    }

private:
    explicit cCopyReference(std::size_t bytes)
        : mBytes(bytes), mFrom(new char[bytes]), mTo(new char[bytes]) {
        std::memset(mFrom.get(), 1, bytes);
        std::memset(mTo.get(), 0, bytes);
    }

    std::size_t mBytes;
    std::unique_ptr<char[]> mFrom, mTo;
};

double Since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Times `operation` and, right after each call, a memcpy of the same bytes, so that both
// see the same state of the machine; the benchmark's time is the operation's alone.
template <class Operation>
void Measure(benchmark::State& state, std::size_t traffic, Operation&& operation) {
    cCopyReference& reference = cCopyReference::For(traffic);
    operation(); // pages of out faulted in, threads started
    reference.Copy();
    double operationSeconds = 0.0, copySeconds = 0.0;
    for (auto _ : state) {
        const auto start = Clock::now();
        operation();
        const double seconds = Since(start);
        const auto copyStart = Clock::now();
        reference.Copy();
        copySeconds += Since(copyStart);
        operationSeconds += seconds;
        state.SetIterationTime(seconds);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * traffic));
    state.counters["x_memcpy"] = operationSeconds / copySeconds;
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
    bench->UseManualTime();
}

} // namespace

BENCHMARK(AddImage)->Apply(Sizes);
BENCHMARK(MultiplyImage)->Apply(Sizes);
BENCHMARK(MultiplyImageByConstant)->Apply(Sizes);
BENCHMARK(DivideImage)->Apply(Sizes);
BENCHMARK(SumImage)->Apply(Sizes);
BENCHMARK(MultiplyComplexImage)->Apply(Sizes);

BENCHMARK_MAIN();
