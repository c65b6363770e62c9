// The element-wise operations of both image math back ends, the plain one and the vector one
// that every run uses, each against the cost of moving the same bytes with memcpy in the same
// run. The counter x_memcpy is the time of one operation divided by the time that memcpy,
// spread over the same worker threads, needs to read and write as many bytes as the
// operation reads and writes; 1.0 means the operation runs at copy speed.
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
#include "math/HighwayKernels.h"
#include "math/cImageMathGeneric.h"
#include "math/cImageMathHighway.h"

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

using Images = const cFloatImagePtr&;

// One operation: the images it needs (a, b with values in the given ranges, out), the bytes it
// reads and writes in multiples of one image, and the call.
struct cOperation {
    const char* name;
    float bLow, bHigh;
    int images; // traffic in images: read and written
    void (*call)(cImageMath& math, Images a, Images b, Images out);
};

const cOperation kOperations[] = {
    {"AddImage", -1, 1, 3,
     [](cImageMath& m, Images a, Images b, Images o) { m.AddImage(a, b, o); }},
    {"SubtractImage", -1, 1, 3,
     [](cImageMath& m, Images a, Images b, Images o) { m.SubtractImage(a, b, o); }},
    {"MultiplyImage", -1, 1, 3,
     [](cImageMath& m, Images a, Images b, Images o) { m.MultiplyImage(a, b, o); }},
    // In place, as the restorations mostly call it.
    {"MultiplyImageByConstant", -1, 1, 2,
     [](cImageMath& m, Images a, Images, Images) { m.MultiplyImageByConstant(a, 1.0f, a); }},
    {"DivideImage", 0.5f, 2, 3,
     [](cImageMath& m, Images a, Images b, Images o) { m.DivideImage(a, b, o); }},
    {"MaximumImage", -1, 1, 3,
     [](cImageMath& m, Images a, Images b, Images o) { m.MaximumImage(a, b, o); }},
    {"SquareRootImage", -1, 1, 2,
     [](cImageMath& m, Images a, Images, Images o) { m.SquareRootImage(a, o); }},
    {"LogImage", -1, 1, 2, [](cImageMath& m, Images a, Images, Images o) { m.LogImage(a, o); }},
    {"Threshold", -1, 1, 2,
     [](cImageMath& m, Images, Images b, Images) {
         m.SubtractImageByConstantAndThreshold(b, 0.0f, 0.0f, 0.0f, 1);
     }},
    {"CopyImage", -1, 1, 2, [](cImageMath& m, Images a, Images, Images o) { m.CopyImage(a, o); }},
    // Writes once: the reference copies half an image each way.
    {"SetImageToConstant", -1, 1, 1,
     [](cImageMath& m, Images, Images, Images o) { m.SetImageToConstant(o, 0.5f); }},
    // Interleaved spectra of the given size: x / 2 complex values per line.
    {"MultiplyComplexImage", -1, 1, 3,
     [](cImageMath& m, Images a, Images b, Images o) { m.MultiplyComplexImage(a, b, o, 0.5f, 0); }},
    // Reads the image once.
    {"SumImage", -1, 1, 1,
     [](cImageMath& m, Images a, Images, Images) { benchmark::DoNotOptimize(m.SumImage(a)); }},
    {"SumOfImageProduct", -1, 1, 2,
     [](cImageMath& m, Images a, Images b, Images) {
         benchmark::DoNotOptimize(m.SumOfImageProduct(a, b));
     }},
    {"FindMaximumValue", -1, 1, 1,
     [](cImageMath& m, Images a, Images, Images) {
         benchmark::DoNotOptimize(m.FindMaximumValue(a));
     }},
};

void Run(benchmark::State& state, const cOperation& operation, bool vector) {
    const cImageDimensions size = SizeOf(state);
    const cImageMathPtr plain(new cImageMathGeneric);
    const cImageMathPtr math = vector ? cImageMathPtr(new cImageMathHighway(plain)) : plain;
    const cFloatImagePtr a = MakeImage(size, -1, 1),
                         b = MakeImage(size, operation.bLow, operation.bHigh),
                         out = MakeImage(size, 0, 0);
    Measure(state, operation.images * Bytes(size), [&] { operation.call(*math, a, b, out); });
    if (vector)
        state.SetLabel(HighwayKernels::TargetName());
}

void Sizes(benchmark::internal::Benchmark* bench) {
    bench->Args({256, 256, 64})->Args({512, 512, 128})->Unit(benchmark::kMillisecond);
    bench->UseManualTime();
}

} // namespace

int main(int argc, char** argv) {
    for (const cOperation& operation : kOperations)
        for (const bool vector : {false, true})
            benchmark::RegisterBenchmark(
                (std::string(operation.name) + (vector ? "/Highway" : "/Generic")).c_str(),
                [&operation, vector](benchmark::State& state) { Run(state, operation, vector); })
                ->Apply(Sizes);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
