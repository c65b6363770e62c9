#include "math/cSlicedConvolution.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "core/cWorkerPool.h"
#include "core/cWorkerThreads.h"
#include "math/ImageWalk.h"
#include "math/PassKernels.h"

namespace Ovidane {
namespace {

// Columns transformed along z together: 128 complex values are 16 cache lines of each
// slice, and a batch of a deep stack (80 slices: 80 KB) stays in the second-level cache
// between its transforms and the product. Fewer columns (16 to 64) measured slower.
constexpr uint64_t kBatch = 128;

uint64_t RoundUp(uint64_t floats) {
    return (floats + 15) / 16 * 16; // whole 64-byte lines
}

// The plans are made on 64-byte aligned arrays; FFTW runs them on any other array of the
// same alignment.
bool Aligned(const float* p) {
    return fftwf_alignment_of(const_cast<float*>(p)) == 0;
}

fftwf_complex* Complex(float* p) {
    return reinterpret_cast<fftwf_complex*>(p);
}

// A batch of columns, gathered column by column, transformed along z from `in` to `out`.
fftwf_plan PlanColumns(int depth, int howMany, float* in, float* out, int sign) {
    return fftwf_plan_many_dft(1, &depth, howMany, Complex(in), nullptr, 1, depth, Complex(out),
                               nullptr, 1, depth, sign, FFTW_ESTIMATE);
}

struct cValue {
    float re, im;
};

void Prefetch(const float* start, uint64_t floats) {
    for (uint64_t i = 0; i < floats; i += 16)
        __builtin_prefetch(start + i, 1, 3);
}

} // namespace

std::size_t cSlicedConvolution::SpectrumFloats(const cImageDimensions& size) {
    return RoundUp(2 * (uint64_t{size.x} / 2 + 1) * size.y) * size.z;
}

std::size_t cSlicedConvolution::StageFloats(const cImageDimensions& size) {
    return RoundUp(uint64_t{size.x} * size.y) * size.z;
}

bool cSlicedConvolution::Plan(const cImageDimensions& size, float* spectrum, float* stage) {
    Release();
    mSize = size;
    mHalf = size.x / 2 + 1;
    mSliceStride = RoundUp(2 * mHalf * size.y);
    mStageStride = RoundUp(uint64_t{size.x} * size.y);
    const int x = static_cast<int>(size.x), y = static_cast<int>(size.y),
              z = static_cast<int>(size.z);
    const uint64_t columns = mHalf * size.y;
    // Every piece runs on one worker thread; the pieces are spread over the workers here.
    fftwf_plan_with_nthreads(1);
    mSliceForward =
        fftwf_plan_dft_r2c_2d(y, x, stage, Complex(spectrum), FFTW_ESTIMATE | FFTW_PRESERVE_INPUT);
    mSliceInverse = fftwf_plan_dft_c2r_2d(y, x, Complex(spectrum), stage, FFTW_ESTIMATE);
    float* gathered = BatchScratch(cWorkerThreads::Count());
    float* values = gathered + 2 * kBatch * size.z;
    const int batch = static_cast<int>(std::min(kBatch, columns));
    mColumnsForward = PlanColumns(z, batch, gathered, values, FFTW_FORWARD);
    mColumnsInverse = PlanColumns(z, batch, values, gathered, FFTW_BACKWARD);
    bool planned = mSliceForward && mSliceInverse && mColumnsForward && mColumnsInverse;
    if (const int tail = static_cast<int>(columns % kBatch); tail != 0 && columns > kBatch) {
        mTailForward = PlanColumns(z, tail, gathered, values, FFTW_FORWARD);
        mTailInverse = PlanColumns(z, tail, values, gathered, FFTW_BACKWARD);
        planned = planned && mTailForward && mTailInverse;
    }
    if (!planned)
        Release();
    return planned;
}

void cSlicedConvolution::Release() {
    for (fftwf_plan* plan : {&mSliceForward, &mSliceInverse, &mColumnsForward, &mColumnsInverse,
                             &mTailForward, &mTailInverse}) {
        if (*plan)
            fftwf_destroy_plan(*plan);
        *plan = nullptr;
    }
    mBatches.reset();
    mBatchThreads = 0;
}

void cSlicedConvolution::ForwardSlices(const cFloatImage& in, float* spectrum, float* stage) const {
    const uint64_t slicePixels = uint64_t{mSize.x} * mSize.y;
    cWorkerPool::ForEach(mSize.z, ImageWalk::ThreadsFor(mSize.Voxels()), [&](int64_t z, int) {
        float* source = in.GetSlicePointer(static_cast<uint32_t>(z));
        if (!Aligned(source)) {
            float* staged = stage + z * mStageStride;
            std::memcpy(staged, source, slicePixels * sizeof(float));
            source = staged;
        }
        fftwf_execute_dft_r2c(mSliceForward, source, Complex(spectrum + z * mSliceStride));
    });
}

void cSlicedConvolution::InverseSlices(float* spectrum, const cFloatImage& out,
                                       float* stage) const {
    const uint64_t slicePixels = uint64_t{mSize.x} * mSize.y;
    cWorkerPool::ForEach(mSize.z, ImageWalk::ThreadsFor(mSize.Voxels()), [&](int64_t z, int) {
        float* target = out.GetSlicePointer(static_cast<uint32_t>(z));
        fftwf_complex* values = Complex(spectrum + z * mSliceStride);
        if (Aligned(target)) {
            fftwf_execute_dft_c2r(mSliceInverse, values, target);
            return;
        }
        float* staged = stage + z * mStageStride;
        fftwf_execute_dft_c2r(mSliceInverse, values, staged);
        std::memcpy(target, staged, slicePixels * sizeof(float));
    });
}

float* cSlicedConvolution::BatchScratch(int threads) const {
    threads = std::max(threads, 1);
    if (threads > mBatchThreads) {
        // Two batches a thread, each a whole number of 64-byte lines (16 Z of them): the
        // buffers FFTW would otherwise take for its own copies of the columns.
        const std::size_t floats = 4 * kBatch * std::size_t{mSize.z} * std::size_t(threads);
        mBatches.reset(fftwf_alloc_real(floats));
        if (!mBatches)
            throw std::bad_alloc();
        mBatchThreads = threads;
    }
    return mBatches.get();
}

template <class Body>
void cSlicedConvolution::ForEachBatch(float* spectrum, bool inverse, Body&& body) const {
    const uint64_t columns = mHalf * mSize.y;
    const uint32_t depth = mSize.z;
    const auto batches = static_cast<int64_t>((columns + kBatch - 1) / kBatch);
    const int threads = ImageWalk::ThreadsFor(mSize.Voxels());
    const uint64_t batchFloats = 2 * kBatch * depth;
    float* scratch = BatchScratch(threads);
    cWorkerPool::ForEach(batches, threads, [&](int64_t b, int worker) {
        const uint64_t first = static_cast<uint64_t>(b) * kBatch;
        const uint64_t count = std::min(kBatch, columns - first);
        const bool whole = count == std::min(kBatch, columns);
        // The next batch's lines, one per slice, are too many streams for the hardware to
        // guess; they are asked for while this batch is worked on.
        const uint64_t next = first + count;
        if (next < columns)
            for (uint32_t z = 0; z < depth; ++z)
                Prefetch(spectrum + z * mSliceStride + 2 * next,
                         2 * std::min(kBatch, columns - next));
        auto* gathered = reinterpret_cast<cValue*>(scratch + 2 * batchFloats * uint64_t(worker));
        auto* values = gathered + kBatch * depth;
        for (uint32_t z = 0; z < depth; ++z) {
            const auto* line = reinterpret_cast<const cValue*>(spectrum + z * mSliceStride) + first;
            for (uint64_t c = 0; c < count; ++c)
                gathered[c * depth + z] = line[c];
        }
        fftwf_execute_dft(whole ? mColumnsForward : mTailForward, Complex(&gathered->re),
                          Complex(&values->re));
        body(first, count, &values->re);
        if (!inverse)
            return;
        fftwf_execute_dft(whole ? mColumnsInverse : mTailInverse, Complex(&values->re),
                          Complex(&gathered->re));
        for (uint32_t z = 0; z < depth; ++z) {
            auto* line = reinterpret_cast<cValue*>(spectrum + z * mSliceStride) + first;
            for (uint64_t c = 0; c < count; ++c)
                line[c] = gathered[c * depth + z];
        }
    });
}

void cSlicedConvolution::Keep(const cFloatImage& kernel, float* kept, float* spectrum,
                              float* stage) const {
    ForwardSlices(kernel, spectrum, stage);
    ForEachBatch(spectrum, false, [&](uint64_t first, uint64_t count, const float* values) {
        std::memcpy(kept + 2 * first * mSize.z, values, 2 * count * mSize.z * sizeof(float));
    });
}

template <class LineOp>
void cSlicedConvolution::Filter(const cFloatImage& in, const float* kept, const cFloatImage& result,
                                float* spectrum, float* stage, LineOp&& lineOp) const {
    ForwardSlices(in, spectrum, stage);
    ForEachBatch(spectrum, true, [&](uint64_t first, uint64_t count, float* values) {
        lineOp(values, kept + 2 * first * mSize.z, count * mSize.z);
    });
    InverseSlices(spectrum, result, stage);
}

void cSlicedConvolution::Convolve(const cFloatImage& in, const float* kept,
                                  const cFloatImage& result, bool conjugate, float* spectrum,
                                  float* stage) const {
    const float scale = 1.0f / static_cast<float>(mSize.Voxels());
    Filter(in, kept, result, spectrum, stage, [&](float* values, const float* k, uint64_t n) {
        if (conjugate)
            PassKernels::MultiplyConjugateSpectrumLine(values, k, values, n, scale);
        else
            PassKernels::MultiplySpectrumLine(values, k, values, n, scale);
    });
}

void cSlicedConvolution::Wiener(const cFloatImage& in, const float* kept, const cFloatImage& result,
                                float k, float* spectrum, float* stage) const {
    const float scale = 1.0f / static_cast<float>(mSize.Voxels());
    Filter(in, kept, result, spectrum, stage, [&](float* values, const float* h, uint64_t n) {
        PassKernels::WienerSpectrumLine(values, h, values, n, k, scale);
    });
}

void cSlicedConvolution::WienerOfKeptImage(const cFloatImage& psf, const float* keptImage,
                                           const cFloatImage& result, float k, float* spectrum,
                                           float* stage) const {
    const float scale = 1.0f / static_cast<float>(mSize.Voxels());
    Filter(psf, keptImage, result, spectrum, stage, [&](float* values, const float* g, uint64_t n) {
        PassKernels::WienerSpectrumLine(g, values, values, n, k, scale);
    });
}

} // namespace Ovidane
