#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>

#include "core/cException.h"
#include "image/cOvdImage.h"

// Small synthetic images and failure capture for the constraint tests.
namespace ConstraintTest {

using Ovidane::cFloatImagePtr;
using Ovidane::cImageDimensions;

inline float& At(const cFloatImagePtr& image, uint32_t x, uint32_t y, uint32_t z) {
    return *image->GetPixelPointer(x, y, z);
}

inline cFloatImagePtr MakeImage(const cImageDimensions& size,
                                const std::function<float(uint32_t, uint32_t, uint32_t)>& value) {
    cFloatImagePtr image(new Ovidane::cFloatImage(size, "ConstraintTest"));
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                At(image, x, y, z) = value(x, y, z);
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

} // namespace ConstraintTest
