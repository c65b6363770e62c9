#pragma once
// Images over memory of the test's own, for the image-math back ends' tests: one piece for
// the whole stack, or one piece per slice, so that every operation meets both layouts and
// lines that do not follow each other in memory.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "image/cOvdImage.h"

namespace OvidaneTest {

using Images = const Ovidane::cFloatImagePtr&;

class ImageMathTestImages : public ::testing::Test {
protected:
    explicit ImageMathTestImages(unsigned seed) : mRandom(seed) {}

    Ovidane::cFloatImagePtr Make(Ovidane::cImageDimensions size, bool perSlice = false,
                                 float value = 0.0f) {
        const std::size_t plane = std::size_t{size.x} * size.y;
        if (!perSlice) {
            auto& pixels = mStorage.emplace_back(plane * size.z, value);
            return new Ovidane::cFloatImage(pixels.data(), size, Ovidane::Contiguous3D, "test");
        }
        std::vector<float*> slices;
        for (uint32_t z = 0; z < size.z; ++z)
            slices.push_back(mStorage.emplace_back(plane, value).data());
        return new Ovidane::cFloatImage(slices.data(), size.x, size.y, size.z,
                                        Ovidane::Contiguous2D, "test");
    }

    Ovidane::cFloatImagePtr Clone(Images image, bool perSlice = false) {
        Ovidane::cFloatImagePtr copy = Make(image->GetDimensions(), perSlice);
        const std::vector<float> pixels = Pixels(image);
        std::size_t i = 0;
        ForEach(copy, [&](float& p) { p = pixels[i++]; });
        return copy;
    }

    static void ForEach(Images image, const std::function<void(float&)>& f) {
        const Ovidane::cImageDimensions s = image->GetDimensions();
        for (uint32_t z = 0; z < s.z; ++z)
            for (uint32_t y = 0; y < s.y; ++y)
                for (uint32_t x = 0; x < s.x; ++x)
                    f(image->GetLinePointer(y, z)[x]);
    }

    static std::vector<float> Pixels(Images image) {
        std::vector<float> pixels;
        ForEach(image, [&](float& p) { pixels.push_back(p); });
        return pixels;
    }

    static float& At(Images image, uint32_t x, uint32_t y, uint32_t z) {
        return image->GetLinePointer(y, z)[x];
    }

    // Same float, NaN included.
    static bool Same(float a, float b) {
        return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
    }

    // Moving a vector keeps its buffer, so the images' pixels stay where they are.
    std::vector<std::vector<float>> mStorage;
    std::mt19937 mRandom;
};

} // namespace OvidaneTest
