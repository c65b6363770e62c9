#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "core/ClassLevelLockable.h"
#include "core/cOvdObject.h"
#include "math/cFFT.h"
#include "math/cFFTPerformancePolicy.h"

namespace Ovidane {

// The process-wide front of the transforms. Each logical thread has its own list of
// instances, one per image size; a transform goes to the calling thread's instance of
// the size of its first image and runs without a lock, so threads transform side by side.
//
// The order of a run: AddInstance for each size, GetMemoryRequests, InitializePlans, the
// transforms, ReleaseThreadInstances. A single plane (z size 1) is served by the first
// instance of the thread with the plane's x and y, whatever its depth.
class cFFTManager : public cOvdObject, private ClassLevelLockable<cFFTManager> {
public:
    cFFTManager();
    ~cFFTManager() override;
    static cFFTManager& Instance();

    // Makes sure that the calling thread has an instance of exactly this size; first and
    // second are handed to a new instance.
    void AddInstance(const cImageDimensions& dimensions, int first, int second);
    // InitializePlans of every instance of the calling thread.
    void InitializePlans();
    void GetMemoryRequests(std::vector<cMemoryRequest>& list);
    // Releases the plans of the calling thread's instances and forgets them.
    void ReleaseThreadInstances();
    // The calling thread's first instance of this size, or null. A z size of 1 compares x
    // and y only.
    cFFTPtr GetInstance(const cImageDimensions& dimensions);
    // Number of instances the calling thread holds.
    std::size_t GetThreadInstanceCount();

    void Convolve(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& result,
                  int mode);
    void WienerFilter(const cFloatImagePtr& a, const cFloatImagePtr& b,
                      const cFloatImagePtr& result, float k);
    // Served by the instance of b's size, since the spectrum has the packed size.
    void WienerFilterKeptImage(const cFloatImagePtr& keptImage, const cFloatImagePtr& b,
                               const cFloatImagePtr& result, float k);
    void ForwardHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out);
    // Convolve with a kernel given by its half spectrum; served by the instance of a's size.
    void ConvolveHalfSpectrum(const cFloatImagePtr& a, const cFloatImagePtr& spectrum,
                              const cFloatImagePtr& result, int mode);
    // A kernel kept for ConvolveKept, and the convolution with it; served by the instance of
    // the kernel's (a's) size.
    void KeepKernel(const cFloatImagePtr& kernel, const cFloatImagePtr& kept);
    void ConvolveKept(const cFloatImagePtr& a, const cFloatImagePtr& kept,
                      const cFloatImagePtr& result, int mode);
    void ConvolveOTF(const cFloatImagePtr& a, const cFloatImagePtr& b, const cFloatImagePtr& result,
                     int mode);
    void FFTPacked(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction);
    void FFT(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
             const cFloatImagePtr& outIm, int direction);
    void FFTFwd(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
                const cFloatImagePtr& outIm);
    void FFTInv(const cFloatImagePtr& re, const cFloatImagePtr& im, const cFloatImagePtr& outRe,
                const cFloatImagePtr& outIm);
    void FFTComplex(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction);
    void GetPackedDimensions(const cImageDimensions& dimensions, cImageDimensions& out);
    void GetComplexDimensions(const cImageDimensions& dimensions, cImageDimensions& out);

private:
    using Lock = ClassLevelLockable<cFFTManager>::Lock;

    std::vector<cFFTPtr>& ThreadInstances();
    cFFTPtr InstanceFor(const cImageDimensions& dimensions, const char* operation);
    cFFTPtr InstanceFor(const cFloatImagePtr& first, const char* operation);

    cCountedPtr<cFFTPerformancePolicy> mPolicy;
    // One unplanned instance per library, there to be rated.
    std::vector<cFFTPtr> mLibraries;
    std::map<uint32_t, std::vector<cFFTPtr>> mInstances;
};

} // namespace Ovidane
