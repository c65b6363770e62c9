#pragma once
#include <cstdint>
#include <memory>
#include <fftw3.h>

#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// A convolution of a stack with a kept kernel, taken slice by slice.
//
// A pair of 3D transforms passes the whole spectrum through memory four times (each slice,
// then the columns along z, both ways) and the product with the kernel twice more. Here
// the slices are transformed one by one; then, a batch of columns at a time, the transform
// along z, the product and the inverse along z run while the batch sits in cache; then the
// slices are transformed back. The spectrum crosses memory twice, and the kernel, kept in
// the order the batches read it, once. A batch is gathered into a thread's own scratch, each
// column's values one after the other, and scattered back once: FFTW transforms it there
// from one half of the scratch into the other without copies of its own. For most depths it
// plans the same decomposition as for the columns where they lie; for some it picks another,
// which changes results in their last bits.
//
// Every slice and every batch is transformed by the same single-threaded plan, whichever
// thread takes it, so the result does not depend on the thread count. The spectrum's slices
// start on cache-line boundaries, and an image slice that FFTW's plans cannot read where it
// lies passes through the stage.
class cSlicedConvolution {
public:
    cSlicedConvolution() = default;
    cSlicedConvolution(const cSlicedConvolution&) = delete;
    cSlicedConvolution& operator=(const cSlicedConvolution&) = delete;

    // Floats of the spectrum scratch and of the stage that the plans and transforms need.
    static std::size_t SpectrumFloats(const cImageDimensions& size);
    static std::size_t StageFloats(const cImageDimensions& size);

    // Makes the plans on the given scratch (aligned to 64 bytes), under the planner lock;
    // false when FFTW could not make one. Release frees them, under the lock too.
    bool Plan(const cImageDimensions& size, float* spectrum, float* stage);
    void Release();
    bool HasPlans() const { return mSliceForward != nullptr; }

    // The kernel's spectrum, in the order Convolve reads it: batch by batch, column by
    // column, each column's Z values together (2 (X/2+1) Y Z floats from `kept`).
    void Keep(const cFloatImage& kernel, float* kept, float* spectrum, float* stage) const;
    // result = in convolved with the kept kernel, or correlated with it (`conjugate`).
    // in and result may be one image.
    void Convolve(const cFloatImage& in, const float* kept, const cFloatImage& result,
                  bool conjugate, float* spectrum, float* stage) const;
    // result = in filtered by the regularised inverse of the kept kernel with constant k.
    void Wiener(const cFloatImage& in, const float* kept, const cFloatImage& result, float k,
                float* spectrum, float* stage) const;
    // Wiener with the roles turned: `keptImage` holds the image's transform (Keep) and `psf`
    // is transformed here; the same quotient, bit for bit.
    void WienerOfKeptImage(const cFloatImage& psf, const float* keptImage,
                           const cFloatImage& result, float k, float* spectrum, float* stage) const;

private:
    void ForwardSlices(const cFloatImage& in, float* spectrum, float* stage) const;
    void InverseSlices(float* spectrum, const cFloatImage& out, float* stage) const;
    // Runs body(first, count, values) for every batch of columns, batches in parallel, with
    // the batch gathered and transformed along z into `values` (column by column) before
    // it; `inverse` transforms it back after and scatters it into the spectrum.
    template <class Body> void ForEachBatch(float* spectrum, bool inverse, Body&& body) const;
    // Scratch for `threads` threads: two batches each.
    float* BatchScratch(int threads) const;
    // Transforms in, calls lineOp(values, kernel values, count) on each run of the spectrum
    // with the kept kernel's matching run, and transforms back into result.
    template <class LineOp>
    void Filter(const cFloatImage& in, const float* kept, const cFloatImage& result,
                float* spectrum, float* stage, LineOp&& lineOp) const;

    cImageDimensions mSize{1, 1, 1};
    uint64_t mHalf = 0;        // complex values per line of the spectrum
    uint64_t mSliceStride = 0; // floats from one spectrum slice to the next
    uint64_t mStageStride = 0; // floats from one stage slice to the next
    fftwf_plan mSliceForward = nullptr;
    fftwf_plan mSliceInverse = nullptr;
    fftwf_plan mColumnsForward = nullptr; // along z, a batch of columns
    fftwf_plan mColumnsInverse = nullptr;
    fftwf_plan mTailForward = nullptr; // the last, shorter batch
    fftwf_plan mTailInverse = nullptr;
    struct cFree {
        void operator()(float* p) const { fftwf_free(p); }
    };
    // Grown when a call runs on more threads than the scratch was made for.
    mutable std::unique_ptr<float[], cFree> mBatches;
    mutable int mBatchThreads = 0;
};

} // namespace Ovidane
