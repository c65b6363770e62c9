#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "core/cException.h"
#include "core/cWorkerThreads.h"
#include "math/cFFTManager.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

cFloatImagePtr RandomImage(cImageDimensions size, unsigned seed) {
    return Random(size, seed, -1.0f, 1.0f);
}

// Largest difference relative to the largest magnitude of the expectation.
double RelativeError(const std::vector<float>& actual, const std::vector<float>& expected) {
    double largest = 0, difference = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        largest = std::max(largest, std::abs(double(expected[i])));
        difference = std::max(difference, std::abs(double(actual[i]) - expected[i]));
    }
    return difference / largest;
}

// Each test starts and ends with no instances on its thread, and the thread count it found.
class cFFTManagerTest : public ::testing::Test {
protected:
    void SetUp() override { cFFTManager::Instance().ReleaseThreadInstances(); }
    void TearDown() override { cFFTManager::Instance().ReleaseThreadInstances(); }
    static void Prepare(std::initializer_list<cImageDimensions> sizes) {
        cFFTManager& manager = cFFTManager::Instance();
        for (const cImageDimensions& size : sizes)
            manager.AddInstance(size, 1, 3);
        manager.InitializePlans();
    }
};

} // namespace

// The transforms themselves are checked against numpy; these are the call forms the
// restorations use that the numpy dump does not: in place, a missing imaginary part, the
// general entry, and the convolution modes on inputs that must stay untouched.
TEST_F(cFFTManagerTest, InPlaceAndPartialCallsRoundTrip) {
    const cImageDimensions stack{6, 4, 3}, plane{6, 4, 1};
    Prepare({stack});
    cFFTManager& fft = cFFTManager::Instance();
    for (const cImageDimensions& size : {stack, plane}) {
        const cFloatImagePtr image = RandomImage(size, 3), work = MakeImage(size);
        const std::vector<float> original = Pixels(image);
        fft.FFTFwd(image, cFloatImagePtr(), image, work);
        fft.FFTInv(image, work, image, cFloatImagePtr());
        EXPECT_LT(RelativeError(Pixels(image), original), 1e-6);

        const cFloatImagePtr re = RandomImage(size, 1), im = RandomImage(size, 2);
        const cFloatImagePtr outRe = MakeImage(size), outIm = MakeImage(size);
        fft.FFT(re, im, outRe, outIm, 1);
        fft.FFT(outRe, outIm, outRe, outIm, -1);
        EXPECT_LT(RelativeError(Pixels(outRe), Pixels(re)), 1e-6);
        EXPECT_LT(RelativeError(Pixels(outIm), Pixels(im)), 1e-6);

        const std::vector<float> pixelsRe = Pixels(re), pixelsIm = Pixels(im);
        fft.Convolve(re, im, outRe, 0); // any other mode transforms b there and back
        EXPECT_LT(RelativeError(Pixels(outRe), pixelsIm), 1e-6);
        // A delta at the origin is the identity, also with the result in place of a.
        const cFloatImagePtr delta = Constant(size, 0.0f);
        At(delta, 0, 0, 0) = 1.0f;
        fft.Convolve(re, delta, re, 2);
        EXPECT_LT(RelativeError(Pixels(re), pixelsRe), 1e-6);
        fft.WienerFilter(im, delta, outIm, 0.0f);
        EXPECT_LT(RelativeError(Pixels(outIm), pixelsIm), 1e-6);
        EXPECT_EQ(Pixels(im), pixelsIm);
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
    // Kernels are never negative: the image math's copy into wider lines stores values below
    // 1e-20 as 0.
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        At(kernel, x, y, z) = std::fabs(At(kernel, x, y, z)) + 0.5f;
    });
    // The kernel in padded lines, the padding filled with values that must not count.
    const cFloatImagePtr padded = Constant(packed, 1e6f);
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        At(padded, x, y, z) = At(kernel, x, y, z);
    });
    const cFloatImagePtr expected = MakeImage(size), result = MakeImage(size);
    fft.Convolve(image, kernel, expected, 2);
    fft.ConvolveOTF(image, padded, result, 2);
    EXPECT_EQ(Pixels(result), Pixels(expected));
    // The kernel as FFTPacked stores it, used in place on the image as smoothing does.
    const cFloatImagePtr stored = Constant(packed, 1e6f);
    fft.FFTPacked(kernel, stored, 1);
    fft.ConvolveOTF(image, stored, image, 2);
    EXPECT_EQ(Pixels(image), Pixels(expected));
}

// A kept half spectrum or an image's kept transform gives the direct call's bits, in place too;
// a kept kernel gives its result within float rounding, the same bits for any thread count.
// Odd widths leave a spare float in each packed line that must not be read as spectrum, and
// put slices off the plans' alignment; 300 columns are more than one batch, the last shorter.
TEST_F(cFFTManagerTest, KeptSpectraAndKernelsGiveTheDirectResult) {
    const cImageDimensions sizes[] = {{15, 6, 4}, {300, 7, 5}, {15, 6, 1}};
    Prepare({sizes[0], sizes[1]});
    cFFTManager& fft = cFFTManager::Instance();
    const int threads = cWorkerThreads::Count();
    for (const cImageDimensions& size : sizes) {
        SCOPED_TRACE(testing::Message() << size.x << "x" << size.y << "x" << size.z);
        const cImageDimensions packed{size.x + 2, size.y, size.z};
        const cFloatImagePtr psf = RandomImage(size, 62);
        const cFloatImagePtr spectrum = Constant(packed, 7.0f), kept = Constant(packed, 7.0f);
        fft.ForwardHalfSpectrum(psf, spectrum);
        fft.KeepKernel(psf, kept);
        for (int mode : {1, 2}) {
            SCOPED_TRACE(mode);
            const cFloatImagePtr image = RandomImage(size, 61), direct = MakeImage(size);
            fft.Convolve(image, psf, direct, mode);
            std::vector<float> first;
            for (int count : {1, 2, 7}) {
                cWorkerThreads::SetCount(count);
                const cFloatImagePtr result = Copy(image);
                fft.ConvolveKept(result, kept, result, mode);
                EXPECT_LT(RelativeError(Pixels(result), Pixels(direct)), 1e-5);
                if (first.empty())
                    first = Pixels(result);
                EXPECT_EQ(Pixels(result), first) << count << " threads";
            }
            cWorkerThreads::SetCount(threads);
            fft.ConvolveHalfSpectrum(image, spectrum, image, mode);
            EXPECT_EQ(Pixels(image), Pixels(direct));
        }
        const cFloatImagePtr image = RandomImage(size, 51);
        fft.KeepKernel(image, spectrum);
        for (float k : {0.0f, 0.03f}) {
            const cFloatImagePtr direct = MakeImage(size), result = Copy(psf);
            fft.WienerFilter(image, psf, direct, k);
            fft.WienerFilterKeptImage(spectrum, result, result, k);
            EXPECT_EQ(Pixels(result), Pixels(direct)) << "k " << k;
        }
    }
    const cFloatImagePtr a = MakeImage(sizes[0]);
    EXPECT_NE(FailureOf([&] { fft.ConvolveHalfSpectrum(a, a, a, 2); }), "");
    EXPECT_NE(FailureOf([&] { fft.WienerFilterKeptImage(a, a, a, 0.1f); }), "");
}

// A stack's PSF spectrum stays in the store from one filter to the next. It must be made
// again for a PSF whose pixels changed in place, and after any operation that wrote over it;
// the filter of the image's kept transform, the same bit for bit (above), says what it must be.
TEST_F(cFFTManagerTest, WienerFilterRemakesThePsfSpectrumOnceItIsNotTheOneHeld) {
    const cImageDimensions size{15, 6, 4}, plane{15, 6, 1}, packed{17, 6, 4};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();
    const cFloatImagePtr image = RandomImage(size, 81), psf = RandomImage(size, 82);
    const cFloatImagePtr other = RandomImage(size, 83), scratch = MakeImage(size);
    const auto expected = [&] {
        const cFloatImagePtr kept = MakeImage(packed), result = MakeImage(size);
        fft.KeepKernel(image, kept);
        fft.WienerFilterKeptImage(kept, psf, result, 0.03f);
        return Pixels(result);
    };
    const std::pair<const char*, std::function<void()>> between[] = {
        {"nothing", [] {}},
        {"a PSF pixel changed in place", [&] { *psf->GetPixelPointer(3, 2, 1) += 0.5f; }},
        {"a PSF sign bit changed", [&] { *psf->GetPixelPointer(0, 0, 0) *= -1.0f; }},
        {"a convolution", [&] { fft.Convolve(image, other, scratch, 2); }},
        {"a complex transform",
         [&] { fft.FFTFwd(other, cFloatImagePtr(), scratch, MakeImage(size)); }},
        {"an inverse half spectrum",
         [&] {
             const cFloatImagePtr spectrum = MakeImage(packed);
             fft.ForwardHalfSpectrum(other, spectrum);
             fft.GetInstance(size)->InverseHalfSpectrum(spectrum, scratch);
         }},
        {"a plane's filter",
         [&] {
             fft.WienerFilter(RandomImage(plane, 84), RandomImage(plane, 85), MakeImage(plane),
                              0.1f);
         }},
    };
    for (const auto& [what, step] : between) {
        SCOPED_TRACE(what);
        fft.WienerFilter(image, psf, scratch, 0.03f);
        step();
        const cFloatImagePtr result = MakeImage(size);
        fft.WienerFilter(image, psf, result, 0.03f);
        EXPECT_EQ(Pixels(result), expected());
    }
}

// The same pixels one float off the alignment of the manager's blocks, and in slices that lie
// apart, inputs and results alike, filter to the same bits.
TEST_F(cFFTManagerTest, ImagesInAnyLayoutOrAlignmentGiveIdenticalResults) {
    const cImageDimensions size{12, 10, 6};
    Prepare({size});
    cFFTManager& fft = cFFTManager::Instance();
    const cFloatImagePtr image = RandomImage(size, 41), psf = RandomImage(size, 42);
    const cFloatImagePtr expected = MakeImage(size);
    fft.WienerFilter(image, psf, expected, 0.05f);

    // Moving a vector keeps its buffer, so the images' pixels stay where they are.
    std::vector<std::vector<float>> storage;
    const std::size_t count = size.Voxels(), slice = size.x * size.y;
    const auto unaligned = [&](const cFloatImagePtr& from) {
        float* block = storage.emplace_back(count + 1).data() + 1;
        std::memcpy(block, from->GetSlicePointer(0), count * sizeof(float));
        return cFloatImagePtr(new cFloatImage(block, size, Contiguous3D, "t"));
    };
    const auto sliced = [&](const cFloatImagePtr& from) {
        std::vector<float*> slices;
        for (uint32_t z = 0; z < size.z; ++z) {
            const float* pixels = from->GetSlicePointer(z);
            slices.push_back(storage.emplace_back(pixels, pixels + slice).data());
        }
        return cFloatImagePtr(
            new cFloatImage(slices.data(), size.x, size.y, size.z, Contiguous2D, "t"));
    };
    const cFloatImagePtr unalignedResult = unaligned(psf), slicedResult = sliced(psf);
    fft.WienerFilter(unaligned(image), unaligned(psf), unalignedResult, 0.05f);
    EXPECT_EQ(Pixels(unalignedResult), Pixels(expected));
    fft.WienerFilter(sliced(image), psf, slicedResult, 0.05f);
    EXPECT_EQ(Pixels(slicedResult), Pixels(expected));
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
            const cFloatImagePtr a = Copy(image), b = Copy(psf), out = MakeImage(size);
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
    EXPECT_NE(FailureOf([&] { fft.Convolve(a, b, b, 2); }), ""); // no instance on this thread
    Prepare({size});
    const cFloatImagePtr deeper = MakeImage({8, 8, 5}), narrow = MakeImage({6, 8, 4});
    for (const auto& call : std::initializer_list<std::function<void()>>{
             [&] { fft.WienerFilter(a, none, b, 0.1f); }, [&] { fft.FFTFwd(a, none, a, none); },
             [&] { fft.Convolve(a, deeper, b, 2); }, [&] { fft.ConvolveOTF(a, narrow, b, 2); },
             [&] { fft.KeepKernel(a, b); }, [&] { fft.ConvolveKept(a, b, b, 2); },
             [&] {
                 fft.ConvolveKept(a, MakeImage({10, 8, 4}), b, 3);
             }})
        EXPECT_NE(FailureOf(call), "");
}
