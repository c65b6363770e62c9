#include "math/cFFTFFTW.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/cWorkerPool.h"
#include "core/cWorkerThreads.h"
#include "math/ImageWalk.h"
#include "math/PassKernels.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {

// Work images are cut to whole cache lines so that both spectra and the stage share one
// alignment, which FFTW demands of the arrays a plan executes on.
constexpr std::size_t kAlignFloats = 16; // 64 bytes

std::size_t RoundUp(std::size_t floats) {
    return (floats + kAlignFloats - 1) / kAlignFloats * kAlignFloats;
}

float* AlignedStart(float* start) {
    const auto address = reinterpret_cast<std::uintptr_t>(start);
    const std::uintptr_t aligned = (address + 63) & ~std::uintptr_t{63};
    return start + (aligned - address) / sizeof(float);
}

bool IsPowerOfTwo(uint32_t v) {
    return v != 0 && (v & (v - 1)) == 0;
}

// Runs body(line) for lines 0 .. lines - 1 spread over the worker threads. Each line writes
// only its own part of the output, so the result does not depend on the thread count.
template <class Body> void ForEachLine(uint64_t lines, uint64_t valuesPerLine, Body&& body) {
    cWorkerPool::ForEach(static_cast<int64_t>(lines), ImageWalk::ThreadsFor(lines * valuesPerLine),
                         [&](int64_t line, int) { body(static_cast<uint64_t>(line)); });
}

void ScaleLine(const float* b, float* out, uint64_t values, float scale) {
    for (uint64_t i = 0; i < 2 * values; ++i)
        out[i] = b[i] * scale;
}

// h := g * conj(h) / (conj(h) * h + k), each step rounded to float in this order:
//   t = conj(h) * h    |h|^2; its imaginary part hr*hi - hi*hr is exactly 0 in float,
//                      so t is carried as one real number
//   t = t + k          k taken as k + 0i
//   q = conj(h) / t    the quotient, both parts divided by the real t (a complex division
//                      by t + 0i rounds to exactly these values)
//   r = g * q          then scaled by 1 / N for the inverse transform
// A frequency where t is 0 gives what float division gives (infinities or NaN).
std::string Message(const char* prefix, const char* operation) {
    return std::string(prefix) + operation;
}

} // namespace

cFFTFFTW::cFFTFFTW() : cFFTFFTW(cImageDimensions{1, 1, 1}, 0, 0) {}

cFFTFFTW::cFFTFFTW(const cImageDimensions& dimensions, int first, int second)
    : cFFT(kLibraryId, "cFFTFFTW"), mFirst(first), mSecond(second) {
    mDimensions = dimensions;
    // Instances may be destroyed at the end of the process, and they take the planner
    // lock then. Touching the lock here makes it exist before whoever holds an instance
    // registers its own end-of-process cleanup, so the lock is destroyed after it.
    const PlannerLock lock;
}

cFFTFFTW::~cFFTFFTW() {
    try {
        ReleasePlans();
    } catch (...) {
        // Nothing may leave a destructor; releasing frees only what the instance owns.
    }
}

namespace {

// FFTW hands the pieces of a threaded plan to this loop, which spreads them over the worker
// threads. The pieces are fixed by the plan, and each writes only its own part, so which
// thread runs which piece changes nothing. Pieces of a plan may be few: no more threads are
// woken than there are pieces.
extern "C" void RunPlanPieces(void* (*work)(char*), char* pieces, std::size_t pieceBytes, int count,
                              void* /*unused*/) {
    cWorkerPool::ForEach(count, cWorkerThreads::Count(), [&](int64_t piece, int) {
        work(pieces + pieceBytes * static_cast<std::size_t>(piece));
    });
}

} // namespace

void cFFTFFTW::PreparePlanner() {
    static const bool threadsReady = [] {
        if (fftwf_init_threads() == 0)
            return false;
        fftwf_threads_set_callback(&RunPlanPieces, nullptr);
        return true;
    }();
    if (threadsReady)
        fftwf_plan_with_nthreads(kPlanPieces);
}

// Planner flags. FFTW_MEASURE times candidate algorithms and keeps the fastest, so the
// plan it picks changes from process to process with the machine's load, and different
// plans round differently: measured here, three processes planning the same size got
// three different plans and two different results, bit for bit. FFTW_ESTIMATE picks by a
// fixed model of the machine: the same size and thread count give the same plan in every
// process, results repeat bit for bit, and planning costs milliseconds, so no wisdom needs
// to be kept or stored. On the sizes of a run it costs from nothing to about half again
// the time of measured plans (docs/fft.md has the numbers). Within one process FFTW keeps
// what it has planned in memory anyway, keyed by size, layout and thread count.
//
// The thread count FFTW plans for decides how it splits a transform's loops, and the pieces
// of another split may get other kernels: planned for the worker count, 19 or 32 threads
// gave other last bits than 1 or 2 on many stack sizes, and 7 on many plane sizes. So every
// plan is made for the same kPlanPieces pieces, whatever the worker count, and the worker
// threads only run those pieces (RunPlanPieces).
void cFFTFFTW::MakePlans(cPlanSet& plans, uint32_t depth) {
    const int x = static_cast<int>(mDimensions.x);
    const int y = static_cast<int>(mDimensions.y);
    const int z = static_cast<int>(depth);
    auto* first = reinterpret_cast<fftwf_complex*>(mFirstSpectrum);
    auto* store = reinterpret_cast<fftwf_complex*>(mFirstSpectrum);
    plans.depth = depth;
    // Out of place from the caller's image: FFTW_PRESERVE_INPUT keeps the inputs of a
    // filter untouched. The inverse may overwrite the spectrum, which is scratch.
    if (depth > 1) {
        plans.forwardReal = fftwf_plan_dft_r2c_3d(z, y, x, mStagePixels, first,
                                                  kPlannerFlags | FFTW_PRESERVE_INPUT);
        plans.inverseReal = fftwf_plan_dft_c2r_3d(z, y, x, first, mStagePixels, kPlannerFlags);
        plans.forwardComplex =
            fftwf_plan_dft_3d(z, y, x, store, store, FFTW_FORWARD, kPlannerFlags);
        plans.inverseComplex =
            fftwf_plan_dft_3d(z, y, x, store, store, FFTW_BACKWARD, kPlannerFlags);
    } else {
        plans.forwardReal =
            fftwf_plan_dft_r2c_2d(y, x, mStagePixels, first, kPlannerFlags | FFTW_PRESERVE_INPUT);
        plans.inverseReal = fftwf_plan_dft_c2r_2d(y, x, first, mStagePixels, kPlannerFlags);
        plans.forwardComplex = fftwf_plan_dft_2d(y, x, store, store, FFTW_FORWARD, kPlannerFlags);
        plans.inverseComplex = fftwf_plan_dft_2d(y, x, store, store, FFTW_BACKWARD, kPlannerFlags);
    }
}

void cFFTFFTW::DestroyPlans(cPlanSet& plans) {
    for (fftwf_plan* plan :
         {&plans.forwardReal, &plans.inverseReal, &plans.forwardComplex, &plans.inverseComplex}) {
        if (*plan)
            fftwf_destroy_plan(*plan);
        *plan = nullptr;
    }
    plans.depth = 0;
}

void cFFTFFTW::InitializePlans() {
    Guard([&] {
        if (HasPlans())
            return;

        const std::size_t x = mDimensions.x, y = mDimensions.y, z = mDimensions.z;
        // One spectrum: X/2 + 1 complex values per line; the two spectra together also hold
        // the X * Y * Z complex values of a full complex transform.
        // The sliced convolution's spectrum has its slices on whole cache lines.
        const std::size_t spectrumFloats = std::max(
            RoundUp(2 * (x / 2 + 1) * y * z), cSlicedConvolution::SpectrumFloats(mDimensions));
        const std::size_t stageFloats =
            std::max(RoundUp(x * y * z), cSlicedConvolution::StageFloats(mDimensions));
        // Each work image is one block, whose size the memory manager counts in 32 bits.
        if (2 * spectrumFloats + kAlignFloats > UINT32_MAX ||
            stageFloats + kAlignFloats > UINT32_MAX)
            Fail("Invalid Dimensions in InitializePlans", 2);
        mStore = new cFloatImage(
            cImageDimensions{static_cast<uint32_t>(2 * spectrumFloats + kAlignFloats), 1, 1},
            Contiguous3D, GetObjectName());
        mStage = new cFloatImage(
            cImageDimensions{static_cast<uint32_t>(stageFloats + kAlignFloats), 1, 1}, Contiguous3D,
            GetObjectName());
        mFirstSpectrum = AlignedStart(mStore->GetSlicePointer(0));
        mSecondSpectrum = mFirstSpectrum + spectrumFloats;
        mSecondHolds.Forget();
        mStagePixels = AlignedStart(mStage->GetSlicePointer(0));
        mPlanAlignment = fftwf_alignment_of(mStagePixels);

        // A stack's filters run slice by slice; whole transforms are planned when first
        // asked for (PlansFor): a restoration by the inverse filter makes none of the stack,
        // and their planning was a tenth of a first run.
        if (mDimensions.z > 1) {
            bool sliced = false;
            {
                const PlannerLock lock;
                PreparePlanner();
                sliced = mSliced.Plan(mDimensions, mFirstSpectrum, mStagePixels);
                PreparePlanner();
            }
            if (!sliced) {
                ReleasePlans();
                Fail("IPP Math Error in InitializePlans: FFTW could not make a plan", 2);
            }
        }
    });
}

const cFFTFFTW::cPlanSet& cFFTFFTW::PlansFor(uint32_t depth) {
    EnsurePlans();
    cPlanSet& plans = depth == mDimensions.z ? mVolume : mPlane;
    if (plans.forwardReal)
        return plans;
    {
        // With FFTW_ESTIMATE the planner doesn't write into the store: what it holds stays.
        const PlannerLock lock;
        PreparePlanner();
        MakePlans(plans, depth);
    }
    if (!plans.forwardReal || !plans.inverseReal || !plans.forwardComplex ||
        !plans.inverseComplex) {
        DestroyPlans(plans);
        Fail("IPP Math Error in InitializePlans: FFTW could not make a plan", 2);
    }
    return plans;
}

void cFFTFFTW::EnsurePlans() {
    if (!HasPlans())
        InitializePlans();
}

void cFFTFFTW::ReleasePlans() {
    Guard([&] {
        {
            const PlannerLock lock;
            DestroyPlans(mVolume);
            DestroyPlans(mPlane);
            mSliced.Release();
        }
        mFirstSpectrum = mSecondSpectrum = mStagePixels = nullptr;
        mSecondHolds.Forget();
        mStore = nullptr;
        mStage = nullptr;
    });
}

void cFFTFFTW::CheckNotNull(const char* operation,
                            std::initializer_list<const cFloatImage*> images) const {
    for (const cFloatImage* image : images)
        if (!image)
            Fail(Message("NULL input image in ", operation), 2);
}

bool cFFTFFTW::FitsInstance(const cFloatImage& image, uint32_t depth) const {
    return image.GetSizeX() == mDimensions.x && image.GetSizeY() == mDimensions.y &&
           image.GetSizeZ() == depth;
}

uint32_t cFFTFFTW::CommonDepth(const char* operation,
                               std::initializer_list<const cFloatImage*> images) const {
    uint32_t depth = 0;
    for (const cFloatImage* image : images) {
        if (!image)
            continue;
        if (depth == 0)
            depth = image->GetSizeZ();
        if ((depth != mDimensions.z && depth != 1) || !FitsInstance(*image, depth))
            Fail(Message("Invalid Dimensions in ", operation), 2);
    }
    return depth;
}

bool cFFTFFTW::FitsPacked(const cFloatImage& image, uint32_t depth) const {
    return image.GetSizeX() == mDimensions.x + 2 && image.GetSizeY() == mDimensions.y &&
           image.GetSizeZ() == depth;
}

void cFFTFFTW::RequireKept(const char* operation, const cFloatImage& kept, uint32_t depth) const {
    if (!FitsPacked(kept, depth) || !kept.IsContiguous3D())
        Fail(std::string("Invalid Dimensions in ") + operation, 2);
}

bool cFFTFFTW::ReadableInPlace(const cFloatImage& image) const {
    return image.GetSizeX() == mDimensions.x && image.IsContiguous3D() &&
           fftwf_alignment_of(image.GetSlicePointer(0)) == mPlanAlignment;
}

// Real image -> half spectrum. An image that FFTW can read as it lies is transformed
// directly; any other is first gathered into the stage, x columns of each line.
void cFFTFFTW::ForwardReal(const cFloatImage& in, const cPlanSet& plans, float* spectrum) {
    float* source = in.GetSlicePointer(0);
    if (!ReadableInPlace(in)) {
        const uint32_t x = mDimensions.x, y = mDimensions.y;
        float* stage = mStagePixels;
        ForEachLine(uint64_t{y} * plans.depth, x, [&](uint64_t line) {
            const auto row = static_cast<uint32_t>(line % y),
                       slice = static_cast<uint32_t>(line / y);
            std::memcpy(stage + line * x, in.GetLinePointer(row, slice), x * sizeof(float));
        });
        source = stage;
    }
    fftwf_execute_dft_r2c(plans.forwardReal, source, reinterpret_cast<fftwf_complex*>(spectrum));
}

// Half spectrum -> real image; the spectrum is overwritten. The scale 1 / N is applied by
// the caller while it forms the spectrum.
void cFFTFFTW::InverseReal(const cPlanSet& plans, float* spectrum, const cFloatImage& out) {
    auto* complex = reinterpret_cast<fftwf_complex*>(spectrum);
    if (ReadableInPlace(out)) {
        fftwf_execute_dft_c2r(plans.inverseReal, complex, out.GetSlicePointer(0));
        return;
    }
    fftwf_execute_dft_c2r(plans.inverseReal, complex, mStagePixels);
    const uint32_t x = mDimensions.x, y = mDimensions.y;
    const float* stage = mStagePixels;
    ForEachLine(uint64_t{y} * plans.depth, x, [&](uint64_t line) {
        const auto row = static_cast<uint32_t>(line % y), slice = static_cast<uint32_t>(line / y);
        std::memcpy(out.GetLinePointer(row, slice), stage + line * x, x * sizeof(float));
    });
}

template <class KernelLine>
void cFFTFFTW::MultiplyAndInvert(const KernelLine& kernelLine, const cFloatImage& result, int mode,
                                 uint32_t depth) {
    const uint64_t half = mDimensions.x / 2 + 1;
    const float scale = 1.0f / static_cast<float>(uint64_t{mDimensions.x} * mDimensions.y * depth);
    // The product replaces the first spectrum: a line written where it was just read costs
    // the memory no fetch of a fresh line. It carries the 1 / N of the inverse transform.
    float* first = mFirstSpectrum;
    ForEachLine(uint64_t{mDimensions.y} * depth, half, [&](uint64_t line) {
        float* product = first + 2 * half * line;
        const float* kernel = kernelLine(line);
        if (mode == 2)
            PassKernels::MultiplySpectrumLine(product, kernel, product, half, scale);
        else if (mode == 1)
            PassKernels::MultiplyConjugateSpectrumLine(product, kernel, product, half, scale);
        else
            ScaleLine(kernel, product, half, scale);
    });
    InverseReal(PlansFor(depth), mFirstSpectrum, result);
}

void cFFTFFTW::RunConvolve(const cFloatImagePtr& a, const cFloatImagePtr& b,
                           const cFloatImagePtr& result, int mode, uint32_t depth) {
    EnsurePlans();
    const cPlanSet& plans = PlansFor(depth);
    ForwardReal(*a, plans, mFirstSpectrum);
    mSecondHolds.Forget();
    ForwardReal(*b, plans, mSecondSpectrum);
    const uint64_t values = 2 * (mDimensions.x / 2 + 1);
    float* second = mSecondSpectrum;
    MultiplyAndInvert([&](uint64_t line) { return second + values * line; }, *result, mode, depth);
}

void cFFTFFTW::ConvolveHalfSpectrum(const cFloatImagePtr& a, const cFloatImagePtr& spectrum,
                                    const cFloatImagePtr& result, int mode) {
    Guard([&] {
        CheckNotNull("ConvolveHalfSpectrum", {a.Get(), spectrum.Get(), result.Get()});
        const uint32_t depth = CommonDepth("ConvolveHalfSpectrum", {a.Get(), result.Get()});
        if (!FitsPacked(*spectrum, depth))
            Fail("Invalid Dimensions in ConvolveHalfSpectrum", 2);
        EnsurePlans();
        ForwardReal(*a, PlansFor(depth), mFirstSpectrum);
        const uint32_t y = mDimensions.y;
        const cFloatImage& kernel = *spectrum;
        MultiplyAndInvert(
            [&](uint64_t line) -> const float* {
                return kernel.GetLinePointer(static_cast<uint32_t>(line % y),
                                             static_cast<uint32_t>(line / y));
            },
            *result, mode, depth);
    });
}

// A stack's kernel is kept in the sliced convolution's order; a plane's as its half
// spectrum, which the plane convolution reads as it lies.
void cFFTFFTW::KeepKernel(const cFloatImagePtr& kernel, const cFloatImagePtr& kept) {
    Guard([&] {
        CheckNotNull("KeepKernel", {kernel.Get(), kept.Get()});
        const uint32_t depth = CommonDepth("KeepKernel", {kernel.Get()});
        RequireKept("KeepKernel", *kept, depth);
        EnsurePlans();
        if (depth == 1) {
            ForwardHalfSpectrum(kernel, kept);
            return;
        }
        mSliced.Keep(*kernel, kept->GetSlicePointer(0), mFirstSpectrum, mStagePixels);
    });
}

void cFFTFFTW::ConvolveKept(const cFloatImagePtr& a, const cFloatImagePtr& kept,
                            const cFloatImagePtr& result, int mode) {
    Guard([&] {
        CheckNotNull("ConvolveKept", {a.Get(), kept.Get(), result.Get()});
        const uint32_t depth = CommonDepth("ConvolveKept", {a.Get(), result.Get()});
        RequireKept("ConvolveKept", *kept, depth);
        if (mode != 1 && mode != 2)
            Fail("Invalid Mode in ConvolveKept", 2);
        EnsurePlans();
        if (depth == 1) {
            ConvolveHalfSpectrum(a, kept, result, mode);
            return;
        }
        mSliced.Convolve(*a, kept->GetSlicePointer(0), *result, mode == 1, mFirstSpectrum,
                         mStagePixels);
    });
}

void cFFTFFTW::Convolve(const cFloatImagePtr& a, const cFloatImagePtr& b,
                        const cFloatImagePtr& result, int mode) {
    Guard([&] {
        CheckNotNull("Convolve", {a.Get(), b.Get(), result.Get()});
        const uint32_t depth = CommonDepth("Convolve", {a.Get(), b.Get(), result.Get()});
        RunConvolve(a, b, result, mode, depth);
    });
}

void cFFTFFTW::ConvolveOTF(const cFloatImagePtr& a, const cFloatImagePtr& b,
                           const cFloatImagePtr& result, int mode) {
    Guard([&] {
        CheckNotNull("ConvolveOTF", {a.Get(), b.Get(), result.Get()});
        const uint32_t depth = CommonDepth("ConvolveOTF", {a.Get(), result.Get()});
        // The kernel's lines may be longer than x; its first x columns enter the transform.
        if (b->GetSizeX() < mDimensions.x || b->GetSizeY() != mDimensions.y ||
            b->GetSizeZ() != depth)
            Fail("Invalid Dimensions in ConvolveOTF", 2);
        RunConvolve(a, b, result, mode, depth);
    });
}

template <class ImageLine>
void cFFTFFTW::RunWiener(const ImageLine& imageLine, const cFloatImage& b,
                         const cFloatImage& result, float k, uint32_t depth) {
    const cPlanSet& plans = PlansFor(depth);
    mSecondHolds.Forget();
    ForwardReal(b, plans, mSecondSpectrum);
    const uint64_t half = mDimensions.x / 2 + 1;
    const float scale = 1.0f / static_cast<float>(uint64_t{mDimensions.x} * mDimensions.y * depth);
    float* h = mSecondSpectrum;
    ForEachLine(uint64_t{mDimensions.y} * depth, half, [&](uint64_t line) {
        float* hLine = h + 2 * half * line;
        PassKernels::WienerSpectrumLine(imageLine(line), hLine, hLine, half, k, scale);
    });
    InverseReal(plans, mSecondSpectrum, result);
}

void cFFTFFTW::WienerFilter(const cFloatImagePtr& a, const cFloatImagePtr& b,
                            const cFloatImagePtr& result, float k) {
    Guard([&] {
        CheckNotNull("WienerFilter", {a.Get(), b.Get(), result.Get()});
        const uint32_t depth = CommonDepth("WienerFilter", {a.Get(), b.Get(), result.Get()});
        EnsurePlans();
        if (depth > 1) {
            // Slice by slice, as a convolution with a kept kernel: the PSF's spectrum is kept
            // in the store's second half, which the sliced transforms leave alone, and is
            // made again only for a PSF with other pixels.
            if (!mSecondHolds.Retake(*b))
                mSliced.Keep(*b, mSecondSpectrum, mFirstSpectrum, mStagePixels);
            mSliced.Wiener(*a, mSecondSpectrum, *result, k, mFirstSpectrum, mStagePixels);
            return;
        }
        ForwardReal(*a, PlansFor(depth), mFirstSpectrum);
        const uint64_t values = 2 * (mDimensions.x / 2 + 1);
        const float* g = mFirstSpectrum;
        RunWiener([&](uint64_t line) { return g + values * line; }, *b, *result, k, depth);
    });
}

void cFFTFFTW::WienerFilterKeptImage(const cFloatImagePtr& keptImage, const cFloatImagePtr& b,
                                     const cFloatImagePtr& result, float k) {
    Guard([&] {
        CheckNotNull("WienerFilterKeptImage", {keptImage.Get(), b.Get(), result.Get()});
        const uint32_t depth = CommonDepth("WienerFilterKeptImage", {b.Get(), result.Get()});
        RequireKept("WienerFilterKeptImage", *keptImage, depth);
        EnsurePlans();
        if (depth > 1) {
            // Slice by slice, the PSF transformed as the image is in WienerFilter; the store's
            // second half, and the PSF spectrum it may hold, stay untouched.
            mSliced.WienerOfKeptImage(*b, keptImage->GetSlicePointer(0), *result, k, mFirstSpectrum,
                                      mStagePixels);
            return;
        }
        // A plane's transform is kept as its half spectrum, the lines of a packed image.
        const cFloatImage& g = *keptImage;
        RunWiener(
            [&](uint64_t line) -> const float* { return g.GetLinePointer(uint32_t(line), 0); }, *b,
            *result, k, depth);
    });
}

void cFFTFFTW::ForwardHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] {
        CheckNotNull("ForwardHalfSpectrum", {in.Get(), out.Get()});
        const uint32_t depth = CommonDepth("ForwardHalfSpectrum", {in.Get()});
        if (!FitsPacked(*out, depth))
            Fail("Invalid Dimensions in ForwardHalfSpectrum", 2);
        EnsurePlans();
        ForwardReal(*in, PlansFor(depth), mFirstSpectrum);
        const uint32_t y = mDimensions.y, width = mDimensions.x + 2;
        const uint64_t values = 2 * (mDimensions.x / 2 + 1);
        const float* spectrum = mFirstSpectrum;
        ForEachLine(uint64_t{y} * depth, values, [&](uint64_t line) {
            float* target = out->GetLinePointer(static_cast<uint32_t>(line % y),
                                                static_cast<uint32_t>(line / y));
            std::memcpy(target, spectrum + values * line, values * sizeof(float));
            std::fill(target + values, target + width, 0.0f);
        });
    });
}

void cFFTFFTW::InverseHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] {
        CheckNotNull("InverseHalfSpectrum", {in.Get(), out.Get()});
        const uint32_t depth = CommonDepth("InverseHalfSpectrum", {out.Get()});
        if (!FitsPacked(*in, depth))
            Fail("Invalid Dimensions in InverseHalfSpectrum", 2);
        EnsurePlans();
        const uint32_t y = mDimensions.y;
        const uint64_t values = 2 * (mDimensions.x / 2 + 1);
        const float scale =
            1.0f / static_cast<float>(uint64_t{mDimensions.x} * mDimensions.y * depth);
        mSecondHolds.Forget();
        float* spectrum = mSecondSpectrum;
        ForEachLine(uint64_t{y} * depth, values, [&](uint64_t line) {
            const float* source = in->GetLinePointer(static_cast<uint32_t>(line % y),
                                                     static_cast<uint32_t>(line / y));
            float* target = spectrum + values * line;
            for (uint64_t i = 0; i < values; ++i)
                target[i] = source[i] * scale;
        });
        InverseReal(PlansFor(depth), mSecondSpectrum, *out);
    });
}

// Split images -> interleaved store -> transform in place -> split images.
void cFFTFFTW::ComplexTransform(const cFloatImage& re, const cFloatImage* im,
                                const cFloatImage* outRe, const cFloatImage* outIm, bool forward,
                                uint32_t depth) {
    EnsurePlans();
    const cPlanSet& plans = PlansFor(depth);
    const uint32_t x = mDimensions.x, y = mDimensions.y;
    const uint64_t lines = uint64_t{y} * depth;
    float* store = mFirstSpectrum;
    // A stack's full complex transform reaches into the second half; a plane's does not.
    if (2 * uint64_t{x} * lines > uint64_t(mSecondSpectrum - mFirstSpectrum))
        mSecondHolds.Forget();
    ForEachLine(lines, x, [&](uint64_t line) {
        const auto row = static_cast<uint32_t>(line % y), slice = static_cast<uint32_t>(line / y);
        const float* r = re.GetLinePointer(row, slice);
        const float* i = im ? im->GetLinePointer(row, slice) : nullptr;
        float* target = store + 2 * x * line;
        for (uint32_t c = 0; c < x; ++c) {
            target[2 * c] = r[c];
            target[2 * c + 1] = i ? i[c] : 0.0f;
        }
    });
    auto* complex = reinterpret_cast<fftwf_complex*>(store);
    fftwf_execute_dft(forward ? plans.forwardComplex : plans.inverseComplex, complex, complex);
    const float scale = forward ? 1.0f : 1.0f / static_cast<float>(uint64_t{x} * y * depth);
    ForEachLine(lines, x, [&](uint64_t line) {
        const auto row = static_cast<uint32_t>(line % y), slice = static_cast<uint32_t>(line / y);
        const float* source = store + 2 * x * line;
        if (outRe) {
            float* r = outRe->GetLinePointer(row, slice);
            for (uint32_t c = 0; c < x; ++c)
                r[c] = source[2 * c] * scale;
        }
        if (outIm) {
            float* i = outIm->GetLinePointer(row, slice);
            for (uint32_t c = 0; c < x; ++c)
                i[c] = source[2 * c + 1] * scale;
        }
    });
}

void cFFTFFTW::FFTFwd(const cFloatImagePtr& re, const cFloatImagePtr& im,
                      const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) {
    Guard([&] {
        CheckNotNull("FFTFwd", {re.Get(), outRe.Get(), outIm.Get()});
        const uint32_t depth =
            CommonDepth("FFTFwd", {re.Get(), im.Get(), outRe.Get(), outIm.Get()});
        ComplexTransform(*re, im.Get(), outRe.Get(), outIm.Get(), true, depth);
    });
}

// On a single plane the inverse divides by X * Y, as on a stack it divides by X * Y * Z:
// forward then inverse returns the image at every depth.
void cFFTFFTW::FFTInv(const cFloatImagePtr& re, const cFloatImagePtr& im,
                      const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) {
    Guard([&] {
        CheckNotNull("FFTInv", {re.Get(), im.Get(), outRe.Get()});
        const uint32_t depth =
            CommonDepth("FFTInv", {re.Get(), im.Get(), outRe.Get(), outIm.Get()});
        ComplexTransform(*re, im.Get(), outRe.Get(), outIm.Get(), false, depth);
    });
}

void cFFTFFTW::FFT(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
                   const cFloatImagePtr& outIm, int direction) {
    Guard([&] {
        CheckNotNull("FFT", {re.Get(), outRe.Get()});
        const uint32_t depth = CommonDepth("FFT", {re.Get(), im.Get(), outRe.Get(), outIm.Get()});
        ComplexTransform(*re, im.Get(), outRe.Get(), outIm.Get(), direction == 1, depth);
    });
}

void cFFTFFTW::FFTPacked(const cFloatImagePtr& in, const cFloatImagePtr& out, int /*direction*/) {
    Guard([&] { cImageMathManager::Instance().GetImageMath()->CopyImage(in, out); });
}

void cFFTFFTW::FFTComplex(const cFloatImagePtr& in, const cFloatImagePtr& out, int /*direction*/) {
    Guard([&] { cImageMathManager::Instance().GetImageMath()->CopyImage(in, out); });
}

void cFFTFFTW::GetPackedDimensions(const cImageDimensions& in, cImageDimensions& out) const {
    out = cImageDimensions{in.x + 2, in.y, in.z};
}

void cFFTFFTW::GetComplexDimensions(const cImageDimensions& in, cImageDimensions& out) const {
    out = cImageDimensions{2 * in.x, in.y, in.z};
}

// The work images are taken from the memory manager when the plans are made; there is
// nothing to reserve ahead.
void cFFTFFTW::GetMemoryRequests(std::vector<cMemoryRequest>& /*list*/) {}

// Power-of-two slices are the fast case; the depth plays no part.
unsigned cFFTFFTW::GetPerformanceRating(const cImageDimensions& dimensions) const {
    return IsPowerOfTwo(dimensions.x) && IsPowerOfTwo(dimensions.y) ? 50u : 150u;
}

} // namespace Ovidane
