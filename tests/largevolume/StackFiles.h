#pragma once
// Small float stacks on disk for the pass tests: built from a function of (x, y, z),
// written and read back as plain arrays, x fastest, then y, then z.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "image/cOvdImage.h"
#include "support/RawStack.h"

namespace OvidaneTest {

struct Stack {
    uint32_t w = 0, h = 0, d = 0;
    std::vector<float> v;

    float& at(uint32_t x, uint32_t y, uint32_t z) { return v[(std::size_t{z} * h + y) * w + x]; }
    float at(uint32_t x, uint32_t y, uint32_t z) const {
        return v[(std::size_t{z} * h + y) * w + x];
    }
};

inline Stack MakeStack(uint32_t w, uint32_t h, uint32_t d,
                       const std::function<float(uint32_t, uint32_t, uint32_t)>& f) {
    Stack s{w, h, d, std::vector<float>(std::size_t{w} * h * d)};
    for (uint32_t z = 0; z < d; ++z)
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
                s.at(x, y, z) = f(x, y, z);
    return s;
}

inline void WriteStack(const std::string& path, const Stack& s) {
    WriteRaw(path, s.v);
}

inline std::uintmax_t FileSize(const std::string& path) {
    return std::filesystem::file_size(path);
}

// A W by H by 1 image holding `values` (x fastest).
inline Ovidane::cFloatImagePtr MakePlane(uint32_t w, uint32_t h, const std::vector<float>& values) {
    Ovidane::cFloatImagePtr image(new Ovidane::cOvdImage<float>(Ovidane::cImageDimensions{w, h, 1},
                                                                Ovidane::Contiguous3D, "test"));
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            *image->GetPixelPointer(x, y, 0) = values[std::size_t{y} * w + x];
    return image;
}

inline std::vector<float> PlaneValues(const Ovidane::cOvdImage<float>& image) {
    std::vector<float> values;
    for (uint32_t z = 0; z < image.GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image.GetSizeY(); ++y)
            for (uint32_t x = 0; x < image.GetSizeX(); ++x)
                values.push_back(*image.GetPixelPointer(x, y, z));
    return values;
}

} // namespace OvidaneTest
