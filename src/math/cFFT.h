#pragma once
#include <vector>

#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cMemoryRequest.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The largest sum of magnitudes that an input of the transforms may have. A transform's
// values are sums over its input, and the Wiener quotient raises a frequency by up to
// 1 / (2 sqrt(K)): about 1450 for the smallest K a run can be given (1.19e-7; a smaller
// noise factor asks for the estimate, whose K is at least 4e-6). Below this sum nothing the
// filter forms passes the float limit.
inline constexpr double kLargestTransformSum = 3.4028234663852886e38 / 2048.0;

// One transform engine for one image size (X, Y, Z), owned by one logical thread.
//
// Convention: forward transforms are unnormalised, F(k) = sum f(n) exp(-2 pi i k n / N) per
// axis; inverse transforms divide by the number of pixels, so forward then inverse returns
// the image. Frequency (0, 0, 0) is the first pixel, and a PSF is expected with its centre
// at pixel (0, 0, 0) in wrap-around order, so H(0, 0, 0) is the PSF's sum.
//
// Besides stacks of its own size, an instance transforms single planes of X x Y (z size 1):
// the manager hands a plane request to any instance of matching x and y.
//
// The lifecycle: construct for a size, InitializePlans once (plans and work images), then
// any number of transforms, which allocate nothing, then ReleasePlans or destruction.
// Failures are cException objects of code 2 whose message ends in the operation's name.
class cFFT : public cOvdObject {
public:
    ~cFFT() override;

    virtual void InitializePlans() = 0;

    // result = inverse(A * B) for mode 2 (circular convolution), inverse(A * conj B) for
    // mode 1 (circular correlation); any other mode gives b back. result may be a or b.
    virtual void Convolve(const cFloatImagePtr& a, const cFloatImagePtr& b,
                          const cFloatImagePtr& result, int mode) = 0;
    // result = inverse(G conj(H) / (|H|^2 + k)) with G, H the transforms of a and b.
    virtual void WienerFilter(const cFloatImagePtr& a, const cFloatImagePtr& b,
                              const cFloatImagePtr& result, float k) = 0;
    // WienerFilter for an image whose transform KeepKernel kept: the transform of an image
    // filtered with one PSF after another is made once. The result is the same, bit for bit,
    // as WienerFilter on the image itself.
    virtual void WienerFilterKeptImage(const cFloatImagePtr& keptImage, const cFloatImagePtr& b,
                                       const cFloatImagePtr& result, float k) = 0;
    // The half spectrum in the packed size (x + 2, y, z): each line holds the X/2 + 1
    // complex values of the real-to-complex transform, real and imaginary part interleaved
    // (a float left over for odd x is 0). in may be a stack or a single plane.
    virtual void ForwardHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) = 0;
    // Convolve for a kernel b that is given by its half spectrum (ForwardHalfSpectrum's
    // layout): an iteration that blurs with one PSF again and again transforms it once. The
    // result is the same, bit for bit, as Convolve with the kernel itself.
    virtual void ConvolveHalfSpectrum(const cFloatImagePtr& a, const cFloatImagePtr& spectrum,
                                      const cFloatImagePtr& result, int mode) = 0;
    // A kernel kept for convolving with again and again, in whatever order the instance
    // convolves with fastest; kept is a contiguous image of the packed size, and nothing but
    // ConvolveKept of an instance of the kernel's size reads it.
    virtual void KeepKernel(const cFloatImagePtr& kernel, const cFloatImagePtr& kept) = 0;
    // Convolve (mode 2) or correlate (mode 1) with a kept kernel; other modes are refused.
    // The result is Convolve's within float rounding (a stack is transformed in another
    // order), and the same for any thread count. result may be a.
    virtual void ConvolveKept(const cFloatImagePtr& a, const cFloatImagePtr& kept,
                              const cFloatImagePtr& result, int mode) = 0;
    // The inverse: a packed half spectrum back to a real image, divided by the pixel count.
    virtual void InverseHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) = 0;
    // Convolve whose kernel b may lie in an image with longer lines (the packed width
    // x + 2 that FFTPacked fills); the first x columns of each line are the kernel.
    virtual void ConvolveOTF(const cFloatImagePtr& a, const cFloatImagePtr& b,
                             const cFloatImagePtr& result, int mode) = 0;
    // Stores in into out, whose lines may be longer (zero padded); direction is unused.
    virtual void FFTPacked(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction) = 0;
    // Complex transform of split images: forward for direction 1, inverse otherwise. A null
    // im counts as zero, a null outIm is not written.
    virtual void FFT(const cFloatImagePtr& re, const cFloatImagePtr& im,
                     const cFloatImagePtr& outRe, const cFloatImagePtr& outIm, int direction) = 0;
    // Forward complex transform; im may be null.
    virtual void FFTFwd(const cFloatImagePtr& re, const cFloatImagePtr& im,
                        const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) = 0;
    // Inverse complex transform; outIm may be null.
    virtual void FFTInv(const cFloatImagePtr& re, const cFloatImagePtr& im,
                        const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) = 0;
    // Stores in into out in every direction.
    virtual void FFTComplex(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction) = 0;
    // (x + 2, y, z): the size of an image that holds a kernel with padded lines.
    virtual void GetPackedDimensions(const cImageDimensions& in, cImageDimensions& out) const = 0;
    // (2 x, y, z): the size of an interleaved complex image.
    virtual void GetComplexDimensions(const cImageDimensions& in, cImageDimensions& out) const = 0;
    // Appends the pixel memory this instance will ask for.
    virtual void GetMemoryRequests(std::vector<cMemoryRequest>& list) = 0;
    // Lower is better; the performance policy compares libraries by it.
    virtual unsigned GetPerformanceRating(const cImageDimensions& dimensions) const = 0;
    // Frees plans and drops the work images; InitializePlans makes them anew.
    virtual void ReleasePlans() = 0;

    int GetLibraryId() const { return mLibraryId; }
    const cImageDimensions& GetDimensions() const { return mDimensions; }

protected:
    cFFT(int libraryId, std::string objectName)
        : cOvdObject(std::move(objectName)), mLibraryId(libraryId) {}

    int mLibraryId;
    cImageDimensions mDimensions{1, 1, 1};
};

using cFFTPtr = cCountedPtr<cFFT>;

} // namespace Ovidane
