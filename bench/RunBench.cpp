// Whole runs through the exported operations, as a host makes them.
//
//   SingleSubvolume        a 256 x 256 x 64 16-bit stack restored in one subvolume: the
//                          process's first call (run this benchmark alone to read it), the
//                          best warm call, the transform floor of the padded size (two forward
//                          and one inverse bare FFTW transform, as the filter needs), the
//                          least a first call could take (first_floor: a warm call, the PSF
//                          and its forward transform, which warm calls keep), and the
//                          plain numpy/scipy script bench/scipy_baseline.py doing the same
//                          read, pad, Wiener quotient and write, timed in the same run.
//   LargeStackUnderBudget  a 1024 x 1024 x 64 16-bit stack restored under a memory budget
//                          that cuts it into several subvolumes: wall time, peak resident
//                          memory against the budget, and the ratio of the run's time to one
//                          bare forward + inverse FFT of every subvolume; then the same for the
//                          best of four more runs in the process (warm_*), which find the
//                          memory and page-cache pages the first run left, timed in turns with
//                          the bare transforms (the best of four too). Peak resident memory is
//                          read before the benchmark makes its own transforms' buffers.
//   MlemUnderBudget        a 512 x 512 x 64 16-bit stack restored by 10 passes of ML-EM
//                          under a budget that cuts it: wall time, peak resident memory
//                          against the budget, seconds per pass and voxel.
//   ThreadsAndNeighbours   a warm run of an N x N x 64 stack in one subvolume on 1 and on 2
//                          worker threads, in turns (speedup_1_to_2), and on the default
//                          threads beside a process that spins on a core
//                          (busy_slowdown: its best time over the best time alone); the
//                          bare transforms of the padded size on 1 and 2 threads in the same
//                          turns (fft_speedup_1_to_2) are the machine's own yardstick.
//   DetectionVsRestoration the full and the binned aberration search on a 256 x 256 x 64
//                          stack, each as a multiple of one restoration of the same stack,
//                          measured in turns in one run; the full search with the image
//                          transforms made anew each evaluation (/0) and kept between
//                          them (/1); search_floor/restoration and
//                          binned_floor/restoration are the least the searches'
//                          evaluations could take in bare transforms, against the run.
//
// Peak resident memory is the process's high-water mark: run one budget per process to read
// it, e.g. --benchmark_filter=LargeStackUnderBudget/512.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BareTransforms.h"
#include "core/DeconKeys.h"
#include "core/cWorkerThreads.h"
#include "decon/cPsfCache.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"
#include "interface/ovdinf01.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "largevolume/cDynamicSubvolumeCalculator.h"
#include "platform/Platform.h"

#include <sys/wait.h>
#include <unistd.h>

using namespace Ovidane;

namespace {

using Clock = std::chrono::steady_clock;
constexpr int16_t kGuardXY = 10, kGuardZ = 6, kOverlap = 10;
constexpr double kMB = 1024.0 * 1024.0;

double Seconds(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A private directory for one benchmark's files, removed with everything in it.
struct WorkDir {
    std::filesystem::path path;
    explicit WorkDir(const char* name)
        : path(std::filesystem::temp_directory_path() /
               (std::string(name) + "-" + std::to_string(Platform::CurrentThreadId()))) {
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path / "tmp");
    }
    ~WorkDir() { std::filesystem::remove_all(path); }
    std::string File(const char* name) const { return (path / name).string(); }
    std::string Temp() const { return (path / "tmp").string(); }
};

// A 16-bit stack of sparse bright voxels on a noisy background of about 100, written a
// slice at a time so that the benchmark itself holds one slice.
void WriteStack(const std::string& name, int width, int height, int depth) {
    std::ofstream out(name, std::ios::binary);
    std::vector<uint16_t> slice(std::size_t(width) * height);
    uint32_t state = 12345u;
    for (int z = 0; z < depth; ++z) {
        for (uint16_t& v : slice) {
            state = state * 1664525u + 1013904223u;
            v = uint16_t(95 + (state >> 29));
            if ((state >> 8) % 5000u == 0)
                v = uint16_t(v + 600);
        }
        out.write(reinterpret_cast<const char*>(slice.data()), std::streamsize(slice.size() * 2));
    }
}

struct Run {
    int16_t width, height, depth;
    std::string input, output, temp;
    int16_t subvolumes = 0;
    // Null: the inverse filter of the five operations; else ovd3dRestore with these.
    const ovdStructIterativeOps* iterative = nullptr;

    static uint16_t OVD_CALL OnStatus(ovdStructInvFilterStatus* status, void* self) {
        static_cast<Run*>(self)->subvolumes = status->sSubvolumeCount;
        return OVD_STATUS_CONTINUE;
    }

    uint16_t Restore() {
        ovdStructInvFilterImage image{};
        image.pszFile = input.c_str();
        image.nDataType = OVD_DATATYPE_UINT16;
        image.nModality = OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
        image.sWidth = width;
        image.sHeight = height;
        image.sDepth = depth;
        image.sExtent4 = 1;
        image.fXSpacing = image.fYSpacing = 0.1f;
        image.fZSpacing = 0.25f;
        image.fNumericalAperture = 1.3f;
        image.fRefractiveIndex = 1.515f;
        image.fEmissionWavelength = 0.52f;
        ovdStructInvFilterOpsStd std{};
        ovdStructInvFilterOpsExp exp{};
        ovdInitStructInvFilterOpsStd(&std);
        ovdInitStructInvFilterOpsExp(&exp);
        std.pszOutputFile = output.c_str();
        std.pszTempDirectory = temp.c_str();
        exp.sXYGuardBand = kGuardXY;
        exp.sZGuardBand = kGuardZ;
        exp.sOverlap = kOverlap;
        if (iterative)
            return ovd3dRestore(&image, nullptr, nullptr, &std, &exp, iterative, &Run::OnStatus,
                                this);
        return ovd3dInverseFilter(&image, nullptr, nullptr, &std, &exp, &Run::OnStatus, this);
    }

    // The full search, or with `search` the one that record asks for.
    uint16_t Detect(float& estimate, int& evaluations, const ovdStructSASearch* search = nullptr) {
        evaluations = 0;
        return ovd3dInverseFilterDetectSAWithSearch(
            input.c_str(), temp.c_str(), width, height, depth, 0.1f, 0.1f, 0.25f, 1.3f, 1.515f,
            0.52f, 0, 0, 0, kGuardXY, kGuardZ, kOverlap, 1, OVD_ARG_PIXEL_UINT16, -10.0f, 10.0f,
            &estimate, 0, 0, 0, nullptr, search,
            [](void* count, uint32_t, float, uint32_t, uint32_t, float) -> uint16_t {
                ++*static_cast<int*>(count);
                return OVD_STATUS_CONTINUE;
            },
            &evaluations);
    }
};

// The cut a run makes of this stack under the current budget, worked out as the run does.
cCountedPtr<cDynamicSubvolumeCalculator> CutOf(const Run& run) {
    cCountedPtr<cDynamicSubvolumeCalculator> cut = new cDynamicSubvolumeCalculator;
    cut->SetImageSize({uint32_t(run.width), uint32_t(run.height), uint32_t(run.depth)});
    cut->SetOverlap(kOverlap);
    cut->SetXYGuardBand(kGuardXY);
    cut->SetZGuardBand(kGuardZ);
    cut->SetMemorySize(GetSubvolumeMemoryBudget(1));
    cut->CalculateSubvolumes();
    cut->CalculateGuardBands();
    return cut;
}

// Seconds of the transforms one Wiener restoration needs (image and PSF forward, the
// quotient inverse), timed once.
double FloorOnce(BareTransforms& bare) {
    const Clock::time_point start = Clock::now();
    bare.Forward(false);
    bare.Forward(true);
    bare.Inverse();
    return Seconds(start);
}

// The same at this size, the best of five; `forward` gets the best of one forward alone.
double WienerFloor(const cImageDimensions& size, double& forward) {
    BareTransforms bare(size);
    double best = 1e30;
    forward = 1e30;
    for (int i = 0; i < 5; ++i) {
        best = std::min(best, FloorOnce(bare));
        const Clock::time_point start = Clock::now();
        bare.Forward(true);
        forward = std::min(forward, Seconds(start));
    }
    return best;
}

// The best of three makings of the run's theoretical PSF at this size, with no kept copy to
// answer in its place.
double PsfSeconds(const cImageDimensions& size) {
    cPsfCache::KeepAtMost(0);
    cTheoreticalPsfFirstGuessWithSphericalAberration guess(0.1f, 0.1f, 0.25f, size, 1.3f, 1.515f,
                                                           0.52f, 0.0f, 1.0f,
                                                           DEC_FLAG_MOD_WF_FLUORESCENCE);
    cFloatImagePtr psf(new cFloatImage(size, Contiguous3D, "bench")), original;
    double best = 1e30;
    for (int i = 0; i < 3; ++i) {
        const Clock::time_point start = Clock::now();
        guess.Apply(psf, original);
        best = std::min(best, Seconds(start));
    }
    return best;
}

// The best warm seconds of bench/scipy_baseline.py on the same stack and padded size, with
// the same threads; 0 when the script can't run (no python3-scipy).
double ScipySeconds(const Run& run, const cImageDimensions& padded, const std::string& out) {
    const std::string command = "/usr/bin/python3 " OVD_BENCH_DIR "/scipy_baseline.py " +
                                run.input + " " + std::to_string(run.width) + " " +
                                std::to_string(run.height) + " " + std::to_string(run.depth) +
                                " " + std::to_string(padded.x) + " " + std::to_string(padded.y) +
                                " " + std::to_string(padded.z) + " " + out + " --threads " +
                                std::to_string(cWorkerThreads::Count()) + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return 0;
    double seconds = 0;
    if (std::fscanf(pipe, "scipy_seconds %lf", &seconds) != 1)
        seconds = 0;
    pclose(pipe);
    return seconds;
}

void SingleSubvolume(benchmark::State& state) {
    WorkDir dir("ovd-bench-single");
    Run run{256, 256, 64, dir.File("stack.raw"), dir.File("restored.raw"), dir.Temp()};
    WriteStack(run.input, run.width, run.height, run.depth);
    const cImageDimensions padded = CutOf(run)->GetPaddedSize();
    Clock::time_point start = Clock::now();
    if (run.Restore() != OVD_RESULT_SUCCESS)
        state.SkipWithError("the restoration failed");
    const double first = Seconds(start);
    double warm = 1e30;
    for (auto _ : state) {
        for (int i = 0; i < 5; ++i) {
            start = Clock::now();
            if (run.Restore() != OVD_RESULT_SUCCESS)
                state.SkipWithError("the restoration failed");
            warm = std::min(warm, Seconds(start));
        }
        state.SetIterationTime(warm);
    }
    double forward = 0;
    const double floor = WienerFloor(padded, forward);
    // The least a first call could take: a warm call plus the PSF and its transform, which
    // a warm call finds kept (the first also has its working memory faulted in afresh).
    const double firstFloor = warm + PsfSeconds(padded) + forward;
    const double scipy = ScipySeconds(run, padded, dir.File("scipy.raw"));
    state.counters["subvolumes"] = double(run.subvolumes);
    state.counters["padded_x"] = padded.x;
    state.counters["padded_y"] = padded.y;
    state.counters["padded_z"] = padded.z;
    state.counters["first_s"] = first;
    state.counters["warm_s"] = warm;
    state.counters["fft_floor_s"] = floor;
    state.counters["scipy_s"] = scipy;
    state.counters["warm/floor"] = warm / floor;
    state.counters["first/warm"] = first / warm;
    state.counters["first_floor/warm"] = firstFloor / warm;
    state.counters["scipy/warm"] = scipy / warm;
    state.counters["threads"] = cWorkerThreads::Count();
}

void LargeStackUnderBudget(benchmark::State& state) {
    const int64_t budget = state.range(0) * int64_t(kMB);
    WorkDir dir("ovd-bench-large");
    Run run{1024, 1024, 64, dir.File("stack.raw"), dir.File("restored.raw"), dir.Temp()};
    WriteStack(run.input, run.width, run.height, run.depth);
    ovdSetMemoryBudget(budget);
    const cCountedPtr<cDynamicSubvolumeCalculator> cut = CutOf(run);
    const cImageDimensions padded = cut->GetPaddedSize();
    const uint64_t count = cut->GetSubvolumeCount().Voxels();

    double wall = 0, warm = 1e30;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        if (run.Restore() != OVD_RESULT_SUCCESS)
            state.SkipWithError("the restoration failed");
        wall = Seconds(start);
        state.SetIterationTime(wall);
    }
    // Later runs and the bare transforms in turns, so that both meet the machine's load
    // alike; the best of four of each. The peak is the runs' own, read before the
    // transforms' buffers are made.
    const auto warmRun = [&] {
        const Clock::time_point again = Clock::now();
        if (run.Restore() != OVD_RESULT_SUCCESS)
            state.SkipWithError("a later restoration failed");
        warm = std::min(warm, Seconds(again));
    };
    warmRun();
    const double peak = double(Platform::PeakResidentBytes()) / kMB;
    double roundTrip = 1e30;
    {
        BareTransforms transforms(padded);
        for (int i = 0; i < 4; ++i) {
            const Clock::time_point start = Clock::now();
            transforms.Forward(false);
            transforms.Inverse();
            roundTrip = std::min(roundTrip, Seconds(start));
            if (i > 0)
                warmRun();
        }
    }
    const double bare = double(count) * roundTrip;
    ovdSetMemoryBudget(0);
    state.counters["subvolumes"] = double(run.subvolumes);
    state.counters["padded_x"] = padded.x;
    state.counters["padded_y"] = padded.y;
    state.counters["padded_z"] = padded.z;
    state.counters["budget_MB"] = double(budget) / kMB;
    state.counters["peak_rss_MB"] = peak;
    state.counters["bare_fft_s"] = bare;
    state.counters["ratio"] = wall / bare;
    state.counters["warm_s"] = warm;
    state.counters["warm_ratio"] = warm / bare;
    state.counters["threads"] = cWorkerThreads::Count();
}

void MlemUnderBudget(benchmark::State& state) {
    const int64_t budget = state.range(0) * int64_t(kMB);
    WorkDir dir("ovd-bench-mlem");
    ovdStructIterativeOps options{};
    ovdInitStructIterativeOps(&options);
    options.nIterations = 10;
    Run run{512, 512, 64, dir.File("stack.raw"), dir.File("restored.raw"), dir.Temp()};
    run.iterative = &options;
    WriteStack(run.input, run.width, run.height, run.depth);
    ovdSetMemoryBudget(budget);
    double wall = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        if (run.Restore() != OVD_RESULT_SUCCESS)
            state.SkipWithError("the restoration failed");
        wall = Seconds(start);
        state.SetIterationTime(wall);
    }
    ovdSetMemoryBudget(0);
    state.counters["subvolumes"] = double(run.subvolumes);
    state.counters["budget_MB"] = double(budget) / kMB;
    state.counters["peak_rss_MB"] = double(Platform::PeakResidentBytes()) / kMB;
    state.counters["ns_per_voxel_pass"] =
        1e9 * wall / double(options.nIterations) / (512.0 * 512.0 * 64.0);
    state.counters["threads"] = cWorkerThreads::Count();
}

// The least a search of `evaluations` evaluations could take on this cut: each makes a new
// PSF, whose forward transform and the inverse of the quotient are two bare transforms of
// the padded size per subvolume (three when the image's transform isn't kept), where a
// restoration with its PSF kept does the image's forward and the inverse.
double SearchFloor(const cDynamicSubvolumeCalculator& cut, int evaluations, bool imagesAnew) {
    double forward = 1e30, inverse = 1e30;
    BareTransforms bare(cut.GetPaddedSize());
    for (int i = 0; i < 4; ++i) {
        Clock::time_point start = Clock::now();
        bare.Forward(false);
        forward = std::min(forward, Seconds(start));
        start = Clock::now();
        bare.Inverse();
        inverse = std::min(inverse, Seconds(start));
    }
    return (imagesAnew ? 2 * forward + inverse : forward + inverse) * double(evaluations) *
           double(cut.GetSubvolumeCount().Voxels());
}

// One restoration, the full aberration search and the binned one (x and y binned by the
// library's choice, 2 here) on the same 256 x 256 x 64 stack, side by side in one run: the
// ratios are what to read, the seconds move with the machine's load. Arg 1: the full search
// keeps each subvolume's image transform between evaluations (no host budget, so the
// memory is spare). Arg 0: it transforms the images anew every time, held to a budget of
// exactly the 16 images a restoration is given, which leaves nothing spare and cuts the
// stack the same way.
void DetectionVsRestoration(benchmark::State& state) {
    const bool keep = state.range(0) != 0;
    WorkDir dir("ovd-bench-detect");
    Run run{256, 256, 64, dir.File("stack.raw"), dir.File("restored.raw"), dir.Temp()};
    WriteStack(run.input, run.width, run.height, run.depth);
    const cCountedPtr<cDynamicSubvolumeCalculator> cut = CutOf(run);
    const int64_t budget = keep ? 0 : 16 * int64_t(cut->GetPaddedSize().Voxels()) * 4;
    ovdSetMemoryBudget(budget);
    if (CutOf(run)->GetPaddedSize().Voxels() != cut->GetPaddedSize().Voxels())
        state.SkipWithError("the budget changed the cut");
    ovdStructSASearch binned;
    ovdInitStructSASearch(&binned);
    binned.nSearch = OVD_SA_SEARCH_BINNED;
    // The best of three of each, taken in turns, so that a spell of load on the machine
    // falls on all three alike. A search ends by giving its thread's memory and transform
    // plans back (the end of every detection), so an untimed restoration goes before
    // each timed call: each finds its plans and pools made, as the process's later calls
    // do, and the restoration is the warm one a host sees.
    double restoration = 1e30, detection = 1e30, binnedDetection = 1e30;
    int evaluations = 0, binnedEvaluations = 0;
    float estimate = 0, binnedEstimate = 0;
    const auto timed = [&](double& best, auto&& call) {
        const Clock::time_point start = Clock::now();
        if (call() != OVD_RESULT_SUCCESS)
            state.SkipWithError("a call failed");
        best = std::min(best, Seconds(start));
    };
    for (auto _ : state) {
        for (int i = 0; i < 3; ++i) {
            run.Restore();
            timed(restoration, [&] { return run.Restore(); });
            timed(detection, [&] { return run.Detect(estimate, evaluations); });
            run.Restore();
            timed(binnedDetection,
                  [&] { return run.Detect(binnedEstimate, binnedEvaluations, &binned); });
        }
        state.SetIterationTime(detection);
    }
    const double floor = SearchFloor(*cut, evaluations, !keep);
    // The binned search cuts the stack binned 2 x 2 in x and y, with the same guard bands.
    const Run binnedRun{128, 128, 64, run.input, run.output, run.temp};
    const double binnedFloor = SearchFloor(*CutOf(binnedRun), binnedEvaluations, !keep);
    ovdSetMemoryBudget(0);
    state.counters["search_floor/restoration"] = floor / restoration;
    state.counters["search/floor"] = detection / floor;
    state.counters["kept_transforms"] = keep;
    state.counters["subvolumes"] = double(cut->GetSubvolumeCount().Voxels());
    state.counters["restoration_s"] = restoration;
    state.counters["evaluations"] = evaluations;
    state.counters["search/restoration"] = detection / restoration;
    state.counters["per_evaluation"] = detection / restoration / std::max(evaluations, 1);
    state.counters["binned_evaluations"] = binnedEvaluations;
    state.counters["binned/restoration"] = binnedDetection / restoration;
    state.counters["binned/search"] = binnedDetection / detection;
    state.counters["binned_floor/restoration"] = binnedFloor / restoration;
}

// A process that spins on a core until it is killed, for as long as it is in scope.
struct BusyNeighbour {
    pid_t pid = fork();
    BusyNeighbour() {
        std::atomic<uint64_t> spins{0};
        if (pid == 0)
            for (;;)
                spins.fetch_add(1, std::memory_order_relaxed);
    }
    ~BusyNeighbour() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
};

void ThreadsAndNeighbours(benchmark::State& state) {
    const auto side = int16_t(state.range(0));
    WorkDir dir("ovd-bench-threads");
    Run run{side, side, 64, dir.File("stack.raw"), dir.File("restored.raw"), dir.Temp()};
    WriteStack(run.input, run.width, run.height, run.depth);
    const auto timed = [&](int threads) {
        ovdSetWorkerThreads(threads);
        const Clock::time_point start = Clock::now();
        if (run.Restore() != OVD_RESULT_SUCCESS)
            state.SkipWithError("the restoration failed");
        return Seconds(start);
    };
    // The bare transforms of the padded size on 1 and 2 threads, in the same turns: how far
    // this machine lets the transforms themselves scale.
    BareTransforms bare(CutOf(run)->GetPaddedSize());
    const auto timedFloor = [&](int threads) {
        ovdSetWorkerThreads(threads);
        return FloorOnce(bare);
    };
    double one = 1e30, two = 1e30, busy = 1e30, floorOne = 1e30, floorTwo = 1e30;
    for (auto _ : state) {
        timed(2); // makes what the warm runs keep
        timedFloor(2);
        for (int i = 0; i < 6; ++i) {
            one = std::min(one, timed(1));
            floorOne = std::min(floorOne, timedFloor(1));
            two = std::min(two, timed(2));
            floorTwo = std::min(floorTwo, timedFloor(2));
        }
        const BusyNeighbour neighbour;
        for (int i = 0; i < 6; ++i)
            busy = std::min(busy, timed(2));
        state.SetIterationTime(two);
    }
    ovdSetWorkerThreads(0);
    state.counters["one_thread_s"] = one;
    state.counters["two_threads_s"] = two;
    state.counters["speedup_1_to_2"] = one / two;
    state.counters["fft_speedup_1_to_2"] = floorOne / floorTwo;
    state.counters["beside_busy_s"] = busy;
    state.counters["busy_slowdown"] = busy / two;
}

// First, so that its first call is the process's first.
BENCHMARK(SingleSubvolume)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(LargeStackUnderBudget)
    ->Arg(384)
    ->Arg(512)
    ->Arg(1024)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK(MlemUnderBudget)->Arg(128)->Arg(256)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(ThreadsAndNeighbours)
    ->Arg(256)
    ->Arg(512)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK(DetectionVsRestoration)->Arg(0)->Arg(1)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char** argv) {
    ovdSetMessageCallback(nullptr, nullptr); // the library's own lines would break the table
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
