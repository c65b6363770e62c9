#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "core/cException.h"
#include "image/cOvdImage.h"

// Small synthetic images, their pixels, and failure capture for the unit tests. Images are
// one contiguous block, so that a test may copy a whole stack at once.
namespace OvidaneTest {

using Ovidane::cFloatImagePtr;
using Ovidane::cImageDimensions;

inline float& At(const cFloatImagePtr& image, uint32_t x, uint32_t y, uint32_t z) {
    return *image->GetPixelPointer(x, y, z);
}

using PixelFunction = std::function<float(uint32_t, uint32_t, uint32_t)>;

// Visits every pixel in file order: x fastest, then y, then z.
inline void ForEachPixel(const cImageDimensions& size,
                         const std::function<void(uint32_t, uint32_t, uint32_t)>& visit) {
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                visit(x, y, z);
}

inline cFloatImagePtr MakeImage(const cImageDimensions& size, const PixelFunction& value = nullptr) {
    cFloatImagePtr image(new Ovidane::cFloatImage(size, Ovidane::Contiguous3D, "test"));
    ForEachPixel(size, [&](uint32_t x, uint32_t y, uint32_t z) {
        At(image, x, y, z) = value ? value(x, y, z) : 0.0f;
    });
    return image;
}

inline cFloatImagePtr Constant(const cImageDimensions& size, float value) {
    return MakeImage(size, [value](uint32_t, uint32_t, uint32_t) { return value; });
}

inline cFloatImagePtr Random(const cImageDimensions& size, unsigned seed, float low, float high) {
    std::mt19937 engine(seed);
    std::uniform_real_distribution<float> uniform(low, high);
    return MakeImage(size, [&](uint32_t, uint32_t, uint32_t) { return uniform(engine); });
}

inline cFloatImagePtr Copy(const cFloatImagePtr& image) {
    return MakeImage(image->GetDimensions(),
                     [&](uint32_t x, uint32_t y, uint32_t z) { return At(image, x, y, z); });
}

inline std::vector<float> Pixels(const cFloatImagePtr& image) {
    std::vector<float> values;
    ForEachPixel(image->GetDimensions(),
                 [&](uint32_t x, uint32_t y, uint32_t z) { values.push_back(At(image, x, y, z)); });
    return values;
}

// Sum of slices first to last, or of the whole image.
inline double Sum(const cFloatImagePtr& image, uint32_t first = 0, uint32_t last = UINT32_MAX) {
    double sum = 0.0;
    for (uint32_t z = first; z <= last && z < image->GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image->GetSizeY(); ++y)
            for (uint32_t x = 0; x < image->GetSizeX(); ++x)
                sum += At(image, x, y, z);
    return sum;
}

struct PixelValue {
    uint32_t x, y, z;
    float value;
};

// Exact values at a few pixels.
inline void ExpectPixels(const cFloatImagePtr& image, std::initializer_list<PixelValue> pixels) {
    for (const PixelValue& p : pixels)
        EXPECT_EQ(At(image, p.x, p.y, p.z), p.value) << p.x << "," << p.y << "," << p.z;
}

// The message of the cException of code 2 that `call` raises, or "" when it raises none.
inline std::string FailureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Ovidane::cException& e) {
        EXPECT_EQ(e.GetCode(), 2) << e.GetMessage();
        return e.GetMessage();
    }
    return "";
}

} // namespace OvidaneTest
