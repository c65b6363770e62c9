#pragma once
#include <cstdint>
#include <fftw3.h>
#include <initializer_list>

#include "core/ClassLevelLockable.h"
#include "math/cFFT.h"
#include "math/cPixelPrint.h"
#include "math/cSlicedConvolution.h"

namespace Ovidane {

// The transform engine on FFTW (single precision; its threaded plans run on cWorkerPool).
//
// Real images take the half-spectrum road: a real-to-complex transform of the whole stack
// gives X/2 + 1 complex values per line of Y * Z lines, and products and quotients of two
// spectra run over those values one to one. Two such spectra lie side by side in one work
// image (the store); the same store serves as the buffer of the full complex transforms.
// A second work image (the stage) takes an input that FFTW cannot read in place: lines of
// another length, slices in separate blocks, or an alignment other than the plans'.
//
// Plans are made in InitializePlans for the instance's size and for a single X x Y plane,
// each split into the same kPlanPieces pieces whatever the worker count, so that a result
// never depends on that count; the worker threads run the pieces. Transforms only execute
// the plans.
class cFFTFFTW : public cFFT, private ClassLevelLockable<cFFTFFTW> {
public:
    static constexpr int kLibraryId = 1;
    // The planner flags of every plan; see docs/fft.md and InitializePlans.
    static constexpr unsigned kPlannerFlags = FFTW_ESTIMATE;
    // The pieces FFTW splits a transform into: as many as 8 threads can share. Many more
    // pieces cost time: FFTW's estimate then picks plans for some sizes that hand out work
    // line by line (16 pieces took 12 times as long as 2 on a 140x140x40 stack, 2 threads).
    static constexpr int kPlanPieces = 8;

    // The instance the policy rates: size 1 x 1 x 1, never planned.
    cFFTFFTW();
    // first and second are kept and not read.
    cFFTFFTW(const cImageDimensions& dimensions, int first, int second);
    ~cFFTFFTW() override;

    void InitializePlans() override;
    void Convolve(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& result,
                  int mode) override;
    void WienerFilter(const cFloatImagePtr& a, const cFloatImagePtr& b,
                      const cFloatImagePtr& result, float k) override;
    void ConvolveOTF(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& result,
                     int mode) override;
    void FFTPacked(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction) override;
    void FFT(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
             const cFloatImagePtr& outIm, int direction) override;
    void FFTFwd(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
                const cFloatImagePtr& outIm) override;
    void FFTInv(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
                const cFloatImagePtr& outIm) override;
    void FFTComplex(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction) override;
    void GetPackedDimensions(const cImageDimensions& in, cImageDimensions& out) const override;
    void GetComplexDimensions(const cImageDimensions& in, cImageDimensions& out) const override;
    void GetMemoryRequests(std::vector<cMemoryRequest>& list) override;
    unsigned GetPerformanceRating(const cImageDimensions& dimensions) const override;
    void ReleasePlans() override;

    void WienerFilterKeptImage(const cFloatImagePtr& keptImage, const cFloatImagePtr& b,
                               const cFloatImagePtr& result, float k) override;
    void ForwardHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) override;
    void InverseHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) override;
    void ConvolveHalfSpectrum(const cFloatImagePtr& a, const cFloatImagePtr& spectrum,
                              const cFloatImagePtr& result, int mode) override;
    void KeepKernel(const cFloatImagePtr& kernel, const cFloatImagePtr& kept) override;
    void ConvolveKept(const cFloatImagePtr& a, const cFloatImagePtr& kept,
                      const cFloatImagePtr& result, int mode) override;

    // The memory and the plans a stack's filters take; the plans of whole transforms (of the
    // stack, of a plane) are made on their first use.
    bool HasPlans() const { return !mStore.IsNull(); }

    // FFTW's planner is process-wide state and not thread-safe: every plan of the process
    // is made and destroyed under this lock. Held, PreparePlanner sets the planner up for
    // plans of kPlanPieces pieces, which FFTW then hands to the worker threads. Both
    // settings are FFTW's own and so process-wide: they hold for any plan of the process.
    using PlannerLock = ClassLevelLockable<cFFTFFTW>::Lock;
    static void PreparePlanner();

private:
    // The plans for one depth: the whole stack, or one plane.
    struct cPlanSet {
        fftwf_plan forwardReal = nullptr;    // image -> half spectrum
        fftwf_plan inverseReal = nullptr;    // half spectrum -> image (overwrites the spectrum)
        fftwf_plan forwardComplex = nullptr; // in place on the store
        fftwf_plan inverseComplex = nullptr; // in place on the store
        uint32_t depth = 0;
    };

    void MakePlans(cPlanSet& plans, uint32_t depth);
    static void DestroyPlans(cPlanSet& plans);
    void EnsurePlans();
    // The plans of whole transforms of `depth` slices, made now if they are not yet.
    const cPlanSet& PlansFor(uint32_t depth);

    // The depth (Z, or 1 for a single plane) shared by all the non-null images; fails with
    // "Invalid Dimensions in " and the operation when their sizes don't fit the instance.
    uint32_t CommonDepth(const char* operation,
                         std::initializer_list<const cFloatImage*> images) const;
    bool FitsInstance(const cFloatImage& image, uint32_t depth) const;
    bool FitsPacked(const cFloatImage& image, uint32_t depth) const;
    // A kept transform (KeepKernel) is a contiguous image of the packed size; fails with
    // "Invalid Dimensions in " and the operation otherwise.
    void RequireKept(const char* operation, const cFloatImage& kept, uint32_t depth) const;
    void CheckNotNull(const char* operation,
                      std::initializer_list<const cFloatImage*> images) const;

    void ForwardReal(const cFloatImage& in, const cPlanSet& plans, float* spectrum);
    void InverseReal(const cPlanSet& plans, float* spectrum, const cFloatImage& out);
    void ComplexTransform(const cFloatImage& re, const cFloatImage* im, const cFloatImage* outRe,
                          const cFloatImage* outIm, bool forward, uint32_t depth);
    bool ReadableInPlace(const cFloatImage& image) const;
    // The Wiener quotient of the image's spectrum, whose lines `imageLine` answers, and of
    // b's transform, and its inverse transform into result.
    template <class ImageLine>
    void RunWiener(const ImageLine& imageLine, const cFloatImage& b, const cFloatImage& result,
                   float k, uint32_t depth);
    void RunConvolve(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& result,
                     int mode, uint32_t depth);
    // The product of the spectrum in the first store half with b's, whose lines `kernelLine`
    // answers, written to the second half and transformed back into result.
    template <class KernelLine>
    void MultiplyAndInvert(const KernelLine& kernelLine, const cFloatImage& result, int mode,
                           uint32_t depth);

    int mFirst;
    int mSecond;
    cPlanSet mVolume;
    cPlanSet mPlane;            // only for Z above 1; a single-plane instance uses mVolume
    cSlicedConvolution mSliced; // convolutions with a kept kernel, for Z above 1
    cFloatImagePtr mStore;
    cFloatImagePtr mStage;
    float* mFirstSpectrum = nullptr;
    float* mSecondSpectrum = nullptr;
    // The print of the PSF whose spectrum the second half holds in the sliced order, kept
    // until another operation writes that half (each that does forgets it): the subvolumes
    // of a cut filter with one PSF.
    cPixelPrint mSecondHolds;
    float* mStagePixels = nullptr;
    int mPlanAlignment = 0;
};

} // namespace Ovidane
