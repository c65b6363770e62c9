// Writes random inputs and what the transform service makes of them to raw float files,
// for fft_numpy_check.py to recompute with numpy. One folder per case under the folder
// given on the command line; each holds size.txt ("X Y Z") and <name>.raw files, slices
// of lines, x fastest, little-endian float32.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>

#include "core/cException.h"
#include "core/cMessageSink.h"
#include "math/cFFTFFTW.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;

namespace {

cFloatImagePtr MakeImage(const cImageDimensions& size) {
    return cFloatImagePtr(new cFloatImage(size, Contiguous3D, "FFTNumpyDump"));
}

void Write(const std::string& folder, const std::string& name, const cFloatImagePtr& image) {
    std::ofstream file(folder + "/" + name + ".raw", std::ios::binary);
    for (uint32_t z = 0; z < image->GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image->GetSizeY(); ++y)
            file.write(reinterpret_cast<const char*>(image->GetLinePointer(y, z)),
                       std::streamsize(image->GetSizeX() * sizeof(float)));
    if (!file)
        throw std::runtime_error("cannot write " + name);
}

// Visits every pixel in file order.
template <class Visit> void ForEachPixel(const cFloatImagePtr& image, Visit visit) {
    for (uint32_t z = 0; z < image->GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image->GetSizeY(); ++y)
            for (uint32_t x = 0; x < image->GetSizeX(); ++x)
                visit(image->GetLinePointer(y, z)[x]);
}

void DumpCase(const std::string& folder, const cImageDimensions& size, unsigned seed) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/size.txt") << size.x << " " << size.y << " " << size.z << "\n";
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    const cFloatImagePtr a = MakeImage(size), b = MakeImage(size);
    // b as a PSF: positive with sum 1.
    double sum = 0;
    ForEachPixel(a, [&](float& p) { p = value(generator); });
    ForEachPixel(b, [&](float& p) { sum += (p = value(generator)); });
    ForEachPixel(b, [&](float& p) { p = float(p / sum); });
    Write(folder, "a", a);
    Write(folder, "b", b);

    cFFTManager& fft = cFFTManager::Instance();
    cImageDimensions packedSize;
    fft.GetPackedDimensions(size, packedSize);
    const cFloatImagePtr packed = MakeImage(packedSize), back = MakeImage(size);
    const auto engine = fft.GetInstance(size).StaticCast<cFFTFFTW>();
    engine->ForwardHalfSpectrum(a, packed);
    Write(folder, "half", packed);
    engine->InverseHalfSpectrum(packed, back);
    Write(folder, "half_back", back);

    const cFloatImagePtr re = MakeImage(size), im = MakeImage(size), result = MakeImage(size);
    fft.FFTFwd(a, b, re, im);
    Write(folder, "fwd_re", re);
    Write(folder, "fwd_im", im);
    fft.FFTInv(a, b, re, im);
    Write(folder, "inv_re", re);
    Write(folder, "inv_im", im);
    fft.Convolve(a, b, result, 2);
    Write(folder, "convolve", result);
    fft.Convolve(a, b, result, 1);
    Write(folder, "correlate", result);
    fft.WienerFilter(a, b, result, 0.01f);
    Write(folder, "wiener", result);
    // The origin shift is defined for even sizes.
    if (size.x % 2 == 0 && size.y % 2 == 0 && size.z % 2 == 0) {
        const cFloatImagePtr work = MakeImage(size);
        cImageMathManager::Instance().GetImageMath()->FFTShift(a, work, result);
        Write(folder, "shift", result);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " output-folder\n";
        return 2;
    }
    const std::string root = argv[1];
    // The memory manager's reports would mix with the check's own lines.
    cMessageSink::Silence();
    try {
        cFFTManager& fft = cFFTManager::Instance();
        // A stack with sizes of several factors, a single plane served by the stack's
        // instance, a shallow even stack, and odd sizes in every axis.
        fft.AddInstance({24, 20, 10}, 1, 3);
        fft.AddInstance({16, 12, 2}, 1, 3);
        fft.AddInstance({15, 9, 5}, 1, 3);
        fft.InitializePlans();
        DumpCase(root + "/stack", {24, 20, 10}, 1);
        DumpCase(root + "/plane", {24, 20, 1}, 2);
        DumpCase(root + "/shallow", {16, 12, 2}, 3);
        DumpCase(root + "/odd", {15, 9, 5}, 4);
        fft.ReleaseThreadInstances();
    } catch (const cException& failure) {
        std::cerr << failure.GetWhere() << ": " << failure.GetMessage() << "\n";
        return 1;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << "\n";
        return 1;
    }
    return 0;
}
