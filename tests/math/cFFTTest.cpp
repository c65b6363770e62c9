#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerThreads.h"
#include "math/cFFTFFTW.h"
#include "math/cFFTManager.h"

using namespace Ovidane;

namespace {

constexpr double kPi = 3.14159265358979323846;

cFloatImagePtr MakeImage(cImageDimensions size) {
    return cFloatImagePtr(new cFloatImage(size, Contiguous3D, "cFFTTest"));
}

float& At(const cFloatImagePtr& image, uint32_t x, uint32_t y, uint32_t z) {
    return *image->GetPixelPointer(x, y, z);
}

void ForEachPixel(const cImageDimensions& size,
                  const std::function<void(uint32_t, uint32_t, uint32_t)>& f) {
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                f(x, y, z);
}

cFloatImagePtr RandomImage(cImageDimensions size, unsigned seed) {
    cFloatImagePtr image = MakeImage(size);
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    ForEachPixel(
        size, [&](uint32_t x, uint32_t y, uint32_t z) { At(image, x, y, z) = value(generator); });
    return image;
}

cFloatImagePtr ConstantImage(cImageDimensions size, float value) {
    cFloatImagePtr image = MakeImage(size);
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) { At(image, x, y, z) = value; });
    return image;
}

std::vector<float> Pixels(const cFloatImagePtr& image) {
    std::vector<float> pixels;
    ForEachPixel(image->GetDimensions(),
                 [&](uint32_t x, uint32_t y, uint32_t z) { pixels.push_back(At(image, x, y, z)); });
    return pixels;
}

// Largest difference relative to the largest magnitude of the expectation: the error
// measure of a transform, whose rounding error scales with the whole signal.
double RelativeError(const std::vector<float>& actual, const std::vector<double>& expected) {
    double largest = 0, difference = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        largest = std::max(largest, std::abs(expected[i]));
        difference = std::max(difference, std::abs(double(actual[i]) - expected[i]));
    }
    return difference / largest;
}

double RelativeError(const std::vector<float>& actual, const std::vector<float>& expected) {
    return RelativeError(actual, std::vector<double>(expected.begin(), expected.end()));
}

// Direct forward DFT in double: the convention the service promises.
std::vector<std::complex<double>> DirectDft(const std::vector<float>& re,
                                            const std::vector<float>& im, cImageDimensions n) {
    std::vector<std::complex<double>> out(re.size());
    ForEachPixel(n, [&](uint32_t kx, uint32_t ky, uint32_t kz) {
        std::complex<double> sum = 0;
        ForEachPixel(n, [&](uint32_t x, uint32_t y, uint32_t z) {
            const double phase =
                -2 * kPi * (double(kx) * x / n.x + double(ky) * y / n.y + double(kz) * z / n.z);
            const std::size_t i = (std::size_t{z} * n.y + y) * n.x + x;
            sum += std::complex<double>(re[i], im.empty() ? 0.0 : im[i]) * std::polar(1.0, phase);
        });
        out[(std::size_t{kz} * n.y + ky) * n.x + kx] = sum;
    });
    return out;
}

// Direct cyclic convolution (mode 2) or correlation (mode 1) in double.
std::vector<double> DirectCyclic(const std::vector<float>& a, const std::vector<float>& b,
                                 cImageDimensions n, int mode) {
    std::vector<double> out(a.size());
    auto index = [&](int64_t x, int64_t y, int64_t z) {
        x = ((x % n.x) + n.x) % n.x, y = ((y % n.y) + n.y) % n.y, z = ((z % n.z) + n.z) % n.z;
        return (std::size_t(z) * n.y + y) * n.x + x;
    };
    ForEachPixel(n, [&](uint32_t x, uint32_t y, uint32_t z) {
        double sum = 0;
        ForEachPixel(n, [&](uint32_t u, uint32_t v, uint32_t w) {
            const double first = mode == 2
                                     ? a[index(u, v, w)]
                                     : a[index(int64_t(x) + u, int64_t(y) + v, int64_t(z) + w)];
            const double second = mode == 2
                                      ? b[index(int64_t(x) - u, int64_t(y) - v, int64_t(z) - w)]
                                      : b[index(u, v, w)];
            sum += first * second;
        });
        out[index(x, y, z)] = sum;
    });
    return out;
}

// Each test starts and ends with no instances on its thread, and the thread count it found.
class cFFTManagerTest : public ::testing::Test {
protected:
    void SetUp() override { cFFTManager::Instance().ReleaseThreadInstances(); }
    void TearDown() override {
        cFFTManager::Instance().ReleaseThreadInstances();
        cWorkerThreads::SetCount(mThreads);
    }
    static void Prepare(std::initializer_list<cImageDimensions> sizes) {
        cFFTManager& manager = cFFTManager::Instance();
        for (const cImageDimensions& size : sizes)
            manager.AddInstance(size, 1, 3);
        manager.InitializePlans();
    }
    static cException Failure(const std::function<void()>& call) {
        try {
            call();
        } catch (const cException& failure) {
            return failure;
        }
        ADD_FAILURE() << "no failure";
        return cException("", "", 0);
    }

    int mThreads = cWorkerThreads::Count();
};

} // namespace

TEST_F(cFFTManagerTest, ComplexTransformsFollowTheConventionAndRoundTrip) {
    // Odd z, and x and y that are not powers of two; the plane size rides on the stack's
    // instance.
    const cImageDimensions stack{6, 4, 3}, plane{6, 4, 1};
    Prepare({stack});
    cFFTManager& fft = cFFTManager::Instance();
    for (const cImageDimensions& size : {stack, plane}) {
        const cFloatImagePtr re = RandomImage(size, 1), im = RandomImage(size, 2);
        const cFloatImagePtr outRe = MakeImage(size), outIm = MakeImage(size);
        fft.FFTFwd(re, im, outRe, outIm);
        const auto expected = DirectDft(Pixels(re), Pixels(im), size);
        std::vector<double> expectedRe, expectedIm;
        for (const auto& value : expected)
            expectedRe.push_back(value.real()), expectedIm.push_back(value.imag());
        EXPECT_LT(RelativeError(Pixels(outRe), expectedRe), 1e-6);
        EXPECT_LT(RelativeError(Pixels(outIm), expectedIm), 1e-6);

        // A missing imaginary part is zero.
        fft.FFTFwd(re, cFloatImagePtr(), outRe, outIm);
        const auto realOnly = DirectDft(Pixels(re), {}, size);
        for (std::size_t i = 0; i < realOnly.size(); ++i)
            expectedRe[i] = realOnly[i].real(), expectedIm[i] = realOnly[i].imag();
        EXPECT_LT(RelativeError(Pixels(outRe), expectedRe), 1e-6);
        EXPECT_LT(RelativeError(Pixels(outIm), expectedIm), 1e-6);

        // In place, as the band limits call it: real part back into the input, the
        // imaginary part into a work image, and back with only the real part out.
        const cFloatImagePtr image = RandomImage(size, 3), work = MakeImage(size);
        const std::vector<float> original = Pixels(image);
        fft.FFTFwd(image, cFloatImagePtr(), image, work);
        fft.FFTInv(image, work, image, cFloatImagePtr());
        EXPECT_LT(RelativeError(Pixels(image), original), 1e-6);

        // The general entry: direction 1 forward, anything else inverse.
        fft.FFT(re, im, outRe, outIm, 1);
        fft.FFT(outRe, outIm, outRe, outIm, -1);
        EXPECT_LT(RelativeError(Pixels(outRe), Pixels(re)), 1e-6);
        EXPECT_LT(RelativeError(Pixels(outIm), Pixels(im)), 1e-6);
    }
}

TEST_F(cFFTManagerTest, ConvolveIsCyclicConvolutionOrCorrelation) {
    const cImageDimensions stack{8, 6, 4}, plane{8, 6, 1};
    Prepare({stack});
    cFFTManager& fft = cFFTManager::Instance();
    for (const cImageDimensions& size : {stack, plane}) {
        const cFloatImagePtr a = RandomImage(size, 11), b = RandomImage(size, 12);
        const std::vector<float> pixelsA = Pixels(a), pixelsB = Pixels(b);
        const cFloatImagePtr result = MakeImage(size);
        for (int mode : {2, 1}) {
            fft.Convolve(a, b, result, mode);
            EXPECT_LT(RelativeError(Pixels(result), DirectCyclic(pixelsA, pixelsB, size, mode)),
                      1e-6)
                << "mode " << mode << " depth " << size.z;
        }
        // The inputs are left as they were.
        EXPECT_EQ(Pixels(a), pixelsA);
        EXPECT_EQ(Pixels(b), pixelsB);
        // Any other mode transforms b there and back.
        fft.Convolve(a, b, result, 0);
        EXPECT_LT(RelativeError(Pixels(result), pixelsB), 1e-6);

        // A delta at the origin is the identity, also with the result in place of a.
        const cFloatImagePtr delta = ConstantImage(size, 0.0f);
        At(delta, 0, 0, 0) = 1.0f;
        fft.Convolve(a, delta, a, 2);
        EXPECT_LT(RelativeError(Pixels(a), pixelsA), 1e-6);
    }
}

TEST_F(cFFTManagerTest, ConvolveOTFReadsTheKernelFromLongerLines) {
    const cImageDimensions size{8, 6, 4}, packed{10, 6, 4};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();
    cImageDimensions reported;
    fft.GetPackedDimensions(size, reported);
    EXPECT_EQ(reported, packed);

    const cFloatImagePtr image = RandomImage(size, 21), kernel = RandomImage(size, 22);
    // The kernel in padded lines, the padding filled with values that must not count.
    const cFloatImagePtr padded = ConstantImage(packed, 1e6f);
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        At(padded, x, y, z) = At(kernel, x, y, z);
    });
    const cFloatImagePtr expected = MakeImage(size), result = MakeImage(size);
    fft.Convolve(image, kernel, expected, 2);
    fft.ConvolveOTF(image, padded, result, 2);
    EXPECT_EQ(Pixels(result), Pixels(expected));
    // The kernel as FFTPacked stores it, used in place on the image as smoothing does.
    const cFloatImagePtr stored = ConstantImage(packed, 1e6f);
    fft.FFTPacked(kernel, stored, 1);
    fft.ConvolveOTF(image, stored, image, 2);
    EXPECT_EQ(Pixels(image), Pixels(expected));
}

TEST_F(cFFTManagerTest, WienerFilterIsTheRegularisedQuotient) {
    const uint32_t X = 16;
    const cImageDimensions size{X, 8, 4};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();

    // PSF 0.75 at the origin and 0.25 at x = 1: H(kx) = 0.75 + 0.25 exp(-2 pi i kx / X), not
    // real, so a lost conjugation shows. The image 1 + cos(theta), theta = 2 pi x / X, has
    // only the frequencies 0 and +-1 in x, and the filter multiplies exp(i theta) by
    // W = conj(H1) / (|H1|^2 + k): the result is 1 / (1 + k) + Re(W exp(i theta)).
    const cFloatImagePtr psf = ConstantImage(size, 0.0f);
    At(psf, 0, 0, 0) = 0.75f;
    At(psf, 1, 0, 0) = 0.25f;
    const cFloatImagePtr image = MakeImage(size);
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        At(image, x, y, z) = float(1 + std::cos(2 * kPi * x / X));
    });
    const std::vector<float> imagePixels = Pixels(image), psfPixels = Pixels(psf);
    const std::complex<double> h1 = 0.75 + 0.25 * std::polar(1.0, -2 * kPi / X);
    const cFloatImagePtr result = MakeImage(size);
    for (float k : {0.0f, 0.01f, 0.5f}) {
        fft.WienerFilter(image, psf, result, k);
        const std::complex<double> w = std::conj(h1) / (std::norm(h1) + k);
        std::vector<double> expected;
        ForEachPixel(size, [&](uint32_t x, uint32_t, uint32_t) {
            expected.push_back(1 / (1 + double(k)) + (w * std::polar(1.0, 2 * kPi * x / X)).real());
        });
        EXPECT_LT(RelativeError(Pixels(result), expected), 1e-6) << "k " << k;
    }
    EXPECT_EQ(Pixels(image), imagePixels);
    EXPECT_EQ(Pixels(psf), psfPixels);

    // With a delta PSF and k = 0 every |H| is 1: the image comes back, in place as well,
    // and on a single plane served by the stack's instance.
    for (const cImageDimensions& each : {size, cImageDimensions{X, 8, 1}}) {
        const cFloatImagePtr delta = ConstantImage(each, 0.0f);
        At(delta, 0, 0, 0) = 1.0f;
        const cFloatImagePtr random = RandomImage(each, 31);
        const std::vector<float> original = Pixels(random);
        fft.WienerFilter(random, delta, random, 0.0f);
        EXPECT_LT(RelativeError(Pixels(random), original), 1e-6);
    }
}

TEST_F(cFFTManagerTest, ConvolutionWithAKeptKernelSpectrumIsTheSameBitForBit) {
    const cImageDimensions size{15, 6, 4}, plane{15, 6, 1};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();
    for (const cImageDimensions& each : {size, plane}) {
        const cFloatImagePtr psf = RandomImage(each, 62);
        const cFloatImagePtr spectrum = ConstantImage({each.x + 2, each.y, each.z}, 7.0f);
        fft.ForwardHalfSpectrum(psf, spectrum);
        for (int mode : {1, 2}) {
            const cFloatImagePtr image = RandomImage(each, 61);
            const cFloatImagePtr direct = MakeImage(each), kept = MakeImage(each);
            fft.Convolve(image, psf, direct, mode);
            fft.ConvolveHalfSpectrum(image, spectrum, kept, mode);
            EXPECT_EQ(Pixels(kept), Pixels(direct)) << "z " << each.z << " mode " << mode;
            // In place, as an iteration reblurs its estimate.
            fft.ConvolveHalfSpectrum(image, spectrum, image, mode);
            EXPECT_EQ(Pixels(image), Pixels(direct));
        }
    }
    const cFloatImagePtr a = MakeImage(size);
    const cException unpacked = Failure([&] { fft.ConvolveHalfSpectrum(a, a, a, 2); });
    EXPECT_EQ(unpacked.GetMessage(), "Invalid Dimensions in ConvolveHalfSpectrum");
}

TEST_F(cFFTManagerTest, WienerFilterFromAKeptSpectrumIsTheSameBitForBit) {
    // An odd width leaves a spare float in each packed line, which must not be read as part
    // of the spectrum; the plane goes to the stack's instance.
    const cImageDimensions size{15, 6, 4}, plane{15, 6, 1};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();
    for (const cImageDimensions& each : {size, plane}) {
        const cFloatImagePtr image = RandomImage(each, 51), psf = RandomImage(each, 52);
        const cFloatImagePtr spectrum = ConstantImage({each.x + 2, each.y, each.z}, 7.0f);
        fft.ForwardHalfSpectrum(image, spectrum);
        for (float k : {0.0f, 0.03f}) {
            const cFloatImagePtr direct = MakeImage(each), kept = MakeImage(each);
            fft.WienerFilter(image, psf, direct, k);
            fft.WienerFilterSpectrum(spectrum, psf, kept, k);
            EXPECT_EQ(Pixels(kept), Pixels(direct)) << "z " << each.z << " k " << k;
        }
        // In place, as a restoration runs it: the image gives way to its result.
        const cFloatImagePtr expected = MakeImage(each);
        fft.WienerFilter(image, psf, expected, 0.03f);
        fft.WienerFilterSpectrum(spectrum, psf, image, 0.03f);
        EXPECT_EQ(Pixels(image), Pixels(expected));
    }

    const cFloatImagePtr a = MakeImage(size), none;
    const cException unpacked = Failure([&] { fft.WienerFilterSpectrum(a, a, a, 0.1f); });
    EXPECT_EQ(unpacked.GetMessage(), "Invalid Dimensions in WienerFilterSpectrum");
    const cException missing = Failure([&] { fft.WienerFilterSpectrum(none, a, a, 0.1f); });
    EXPECT_EQ(missing.GetMessage(), "NULL input image in WienerFilterSpectrum");
}

TEST_F(cFFTManagerTest, ImagesInAnyLayoutOrAlignmentGiveIdenticalResults) {
    const cImageDimensions size{12, 10, 6};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();
    const cFloatImagePtr image = RandomImage(size, 41), psf = RandomImage(size, 42);
    const cFloatImagePtr expected = MakeImage(size);
    fft.WienerFilter(image, psf, expected, 0.05f);

    // The same pixels one float off the alignment of the manager's blocks, and in slices
    // that lie apart; the results too go to such images.
    const std::size_t count = size.Voxels(), slice = size.x * size.y;
    std::vector<float> shifted(2 * count + 1), shiftedPsf(count + 1);
    std::vector<std::vector<float>> slices(size.z, std::vector<float>(slice)),
        resultSlices = slices;
    std::vector<float*> slicePointers, resultPointers;
    for (uint32_t z = 0; z < size.z; ++z) {
        std::memcpy(slices[z].data(), image->GetSlicePointer(z), slice * sizeof(float));
        slicePointers.push_back(slices[z].data());
        resultPointers.push_back(resultSlices[z].data());
    }
    std::memcpy(shifted.data() + 1, image->GetSlicePointer(0), count * sizeof(float));
    std::memcpy(shiftedPsf.data() + 1, psf->GetSlicePointer(0), count * sizeof(float));
    const cFloatImagePtr unaligned(new cFloatImage(shifted.data() + 1, size, Contiguous3D, "t"));
    const cFloatImagePtr unalignedPsf(
        new cFloatImage(shiftedPsf.data() + 1, size, Contiguous3D, "t"));
    const cFloatImagePtr unalignedResult(
        new cFloatImage(shifted.data() + count + 1, size, Contiguous3D, "t"));
    const cFloatImagePtr sliced(
        new cFloatImage(slicePointers.data(), size.x, size.y, size.z, Contiguous2D, "t"));
    const cFloatImagePtr slicedResult(
        new cFloatImage(resultPointers.data(), size.x, size.y, size.z, Contiguous2D, "t"));

    fft.WienerFilter(unaligned, unalignedPsf, unalignedResult, 0.05f);
    EXPECT_EQ(Pixels(unalignedResult), Pixels(expected));
    fft.WienerFilter(sliced, psf, slicedResult, 0.05f);
    EXPECT_EQ(Pixels(slicedResult), Pixels(expected));
}

TEST_F(cFFTManagerTest, ResultsRepeatExactlyAndAreTheSameForAnyThreadCount) {
    // Sizes on which FFTW, planned for the worker count, splits its loops differently above
    // a few threads and rounds differently: the stack at 19 and 32 threads, its plane (the
    // regularisation estimate's transform) at 7 and more.
    const cImageDimensions size{94, 80, 30}, plane{94, 80, 1};
    const cFloatImagePtr image = RandomImage(size, 51), psf = RandomImage(size, 52);
    const cFloatImagePtr result = MakeImage(size), spectrum = MakeImage(size),
                         work = MakeImage(size);
    const cFloatImagePtr flat = RandomImage(plane, 53), flatRe = MakeImage(plane),
                         flatIm = MakeImage(plane);
    cFFTManager& fft = cFFTManager::Instance();
    auto run = [&](int threads) {
        cWorkerThreads::SetCount(threads);
        fft.ReleaseThreadInstances();
        Prepare({size});
        std::vector<std::vector<float>> outputs;
        fft.WienerFilter(image, psf, result, 0.01f);
        outputs.push_back(Pixels(result));
        fft.Convolve(image, psf, result, 1);
        outputs.push_back(Pixels(result));
        fft.FFTFwd(image, psf, spectrum, work);
        outputs.push_back(Pixels(spectrum));
        outputs.push_back(Pixels(work));
        fft.FFTFwd(flat, cFloatImagePtr(), flatRe, flatIm);
        outputs.push_back(Pixels(flatRe));
        outputs.push_back(Pixels(flatIm));
        return outputs;
    };
    const auto single = run(1);
    EXPECT_EQ(run(1), single) << "a repeat";
    for (int threads : {2, 7, 19, 32}) {
        const auto outputs = run(threads);
        for (std::size_t i = 0; i < single.size(); ++i)
            EXPECT_EQ(outputs[i], single[i]) << "output " << i << " at " << threads << " threads";
    }
}

TEST_F(cFFTManagerTest, InstancesBelongToTheirThreadAndSize) {
    cFFTManager& fft = cFFTManager::Instance();
    fft.AddInstance({64, 64, 8}, 1, 3);
    fft.AddInstance({64, 64, 8}, 1, 3);
    EXPECT_EQ(fft.GetThreadInstanceCount(), 1u);
    fft.AddInstance({64, 64, 1}, 1, 3);
    EXPECT_EQ(fft.GetThreadInstanceCount(), 2u);

    // A plane request compares x and y only and takes the first in the list; any other
    // request compares all three sizes.
    const cFFTPtr stack = fft.GetInstance({64, 64, 8});
    ASSERT_TRUE(stack);
    EXPECT_EQ(fft.GetInstance({64, 64, 1}).Get(), stack.Get());
    EXPECT_FALSE(fft.GetInstance({64, 64, 4}));
    EXPECT_FALSE(fft.GetInstance({64, 32, 1}));

    // Another thread sees none of these and keeps its own.
    std::size_t otherBefore = 99, otherAfter = 99;
    std::thread other([&] {
        otherBefore = fft.GetThreadInstanceCount();
        fft.AddInstance({32, 32, 4}, 1, 3);
        fft.InitializePlans();
        otherAfter = fft.GetThreadInstanceCount();
        fft.ReleaseThreadInstances();
    });
    other.join();
    EXPECT_EQ(otherBefore, 0u);
    EXPECT_EQ(otherAfter, 1u);
    EXPECT_EQ(fft.GetThreadInstanceCount(), 2u);
    EXPECT_FALSE(fft.GetInstance({32, 32, 4}));

    fft.ReleaseThreadInstances();
    EXPECT_EQ(fft.GetThreadInstanceCount(), 0u);
    EXPECT_FALSE(stack.StaticCast<cFFTFFTW>()->HasPlans());
}

TEST_F(cFFTManagerTest, ThreadsTransformSideBySide) {
    const cImageDimensions size{40, 36, 12};
    const cFloatImagePtr image = RandomImage(size, 61), psf = RandomImage(size, 62);
    Prepare({size});
    const cFloatImagePtr expected = MakeImage(size);
    cFFTManager::Instance().WienerFilter(image, psf, expected, 0.02f);
    const std::vector<float> expectedPixels = Pixels(expected);

    // Each worker has its own instance, plans and work images; they filter at the same
    // time, on copies of the inputs, and must all agree with the filter made alone.
    constexpr int kWorkers = 3;
    std::vector<std::vector<float>> results(kWorkers);
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w)
        workers.emplace_back([&, w] {
            cFFTManager& fft = cFFTManager::Instance();
            fft.AddInstance(size, 1, 3);
            fft.InitializePlans();
            const cFloatImagePtr a = MakeImage(size), b = MakeImage(size), out = MakeImage(size);
            std::memcpy(a->GetSlicePointer(0), image->GetSlicePointer(0), size.Voxels() * 4);
            std::memcpy(b->GetSlicePointer(0), psf->GetSlicePointer(0), size.Voxels() * 4);
            for (int round = 0; round < 5; ++round)
                fft.WienerFilter(a, b, out, 0.02f);
            results[w] = Pixels(out);
            fft.ReleaseThreadInstances();
        });
    for (std::thread& worker : workers)
        worker.join();
    for (const std::vector<float>& result : results)
        EXPECT_EQ(result, expectedPixels);
}

// Missing instances, missing images and sizes that don't agree are refused as parameter
// failures rather than transformed.
TEST_F(cFFTManagerTest, MissingOrMismatchedInputsAreRefused) {
    cFFTManager& fft = cFFTManager::Instance();
    const cImageDimensions size{8, 8, 4};
    const cFloatImagePtr a = MakeImage(size), b = MakeImage(size), none;
    cImageDimensions out;
    const auto refused = [&](const std::function<void()>& call) {
        EXPECT_EQ(Failure(call).GetCode(), 2);
    };
    refused([&] { fft.Convolve(a, b, b, 2); }); // no instance for the size on this thread
    refused([&] { fft.ConvolveOTF(a, b, b, 2); });
    refused([&] { fft.FFTFwd(a, none, a, b); });
    refused([&] { fft.GetPackedDimensions(size, out); });

    Prepare({size});
    refused([&] { fft.WienerFilter(a, none, b, 0.1f); });
    refused([&] { fft.Convolve(none, b, b, 2); });
    refused([&] { fft.FFTFwd(a, none, a, none); });
    refused([&] { fft.FFTInv(a, none, a, none); });
    const cFloatImagePtr deeper = MakeImage({8, 8, 5}), plane = MakeImage({8, 8, 1});
    const cFloatImagePtr narrow = MakeImage({6, 8, 4});
    refused([&] { fft.Convolve(a, deeper, b, 2); });
    refused([&] { fft.FFTFwd(plane, a, plane, plane); });
    refused([&] { fft.ConvolveOTF(a, narrow, b, 2); });
}
