#pragma once
// Images over memory of the test's own, for the image-math back ends' tests: one piece for
// the whole stack, or one piece per slice, so that every operation meets both layouts and
// lines that do not follow each other in memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "image/cOvdImage.h"
#include "math/cImageMath.h"
#include "support/TestImages.h"

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
        ForEachPixel(image->GetDimensions(), [&](uint32_t x, uint32_t y, uint32_t z) {
            At(copy, x, y, z) = At(image, x, y, z);
        });
        return copy;
    }

    // Values in [low, high), every seventh of them one of: a zero of either sign, a value
    // below the guard value (a negative one only where the range has negatives) or `high`
    // itself, so that every guarded branch is met.
    Ovidane::cFloatImagePtr Random(Ovidane::cImageDimensions size, bool perSlice, float low = -4.0f,
                                   float high = 4.0f) {
        Ovidane::cFloatImagePtr image = Make(size, perSlice);
        std::uniform_real_distribution<float> value(low, high);
        const float special[] = {0.0f, -0.0f, 1e-25f, -1e-30f, 1e-20f, high};
        std::size_t i = 0;
        ForEach(image, [&](float& p) {
            const float s = special[(i / 7) % 6];
            p = i++ % 7 == 3 && (s >= low || s >= 0.0f) ? s : value(mRandom);
        });
        return image;
    }

    static void ForEach(Images image, const std::function<void(float&)>& f) {
        ForEachPixel(image->GetDimensions(),
                     [&](uint32_t x, uint32_t y, uint32_t z) { f(At(image, x, y, z)); });
    }

    // Same float, NaN included.
    static bool Same(float a, float b) {
        return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
    }

    // Moving a vector keeps its buffer, so the images' pixels stay where they are.
    std::vector<std::vector<float>> mStorage;
    std::mt19937 mRandom;
};

// One element-wise operation: how to run it on (a, b) into out (in-place ones run on out after
// a copy of a); the plain back end's value for input pixels p and q, where the test states
// one; and the vector back end's own rule where it differs from the plain result, exact or
// within a relative tolerance (the vector logarithm and exponential).
struct ElementWise {
    using Rule = std::function<float(float, float)>;
    const char* name;
    std::function<void(Ovidane::cImageMath&, Images, Images, Images)> run;
    Rule plain = {};
    Rule vector = {};
    float tolerance = 0.0f;
};

inline std::vector<ElementWise> ElementWiseOperations() {
    const float c = 0.625f;
    using M = Ovidane::cImageMath&;
    const auto floor = [](float p) { return std::max(p, 1e-20f); };
    const auto log = [floor](float p, float) { return std::log(floor(p)); };
    return {
        {"AddImage", [](M m, Images a, Images b, Images o) { m.AddImage(a, b, o); },
         [](float p, float q) { return p + q; }},
        {"SubtractImage", [](M m, Images a, Images b, Images o) { m.SubtractImage(a, b, o); },
         [](float p, float q) { return p - q; }},
        {"MultiplyImage", [](M m, Images a, Images b, Images o) { m.MultiplyImage(a, b, o); },
         [](float p, float q) { return p * q; }},
        {"MinimumImage", [](M m, Images a, Images b, Images o) { m.MinimumImage(a, b, o); },
         [](float p, float q) { return std::fmin(p, q); }},
        {"MaximumImage", [](M m, Images a, Images b, Images o) { m.MaximumImage(a, b, o); },
         [](float p, float q) { return std::fmax(p, q); }},
        {"AddImageByConstant",
         [c](M m, Images a, Images, Images o) { m.AddImageByConstant(a, c, o); },
         [c](float p, float) { return p + c; }},
        {"SubtractImageByConstant",
         [c](M m, Images a, Images, Images o) { m.SubtractImageByConstant(a, c, o); },
         [c](float p, float) { return p - c; }},
        {"MultiplyImageByConstant",
         [c](M m, Images a, Images, Images o) { m.MultiplyImageByConstant(a, c, o); },
         [c](float p, float) { return p * c; }},
        {"AbsoluteValueImage", [](M m, Images a, Images, Images o) { m.AbsoluteValueImage(a, o); },
         [](float p, float) { return std::fabs(p); }},
        {"SquareImage", [](M m, Images a, Images, Images o) { m.SquareImage(a, o); },
         [](float p, float) { return p * p; }},
        {"CopyImage", [](M m, Images a, Images, Images o) { m.CopyImage(a, o); },
         [](float p, float) { return p; }},
        {"NormalizeImage(low, high)",
         [](M m, Images a, Images, Images o) { m.NormalizeImage(a, o, -1.0f, 3.0f); },
         [](float p, float) { return (p + 1.0f) / 4.0f; }},
        {"Threshold below, mode 1",
         [c](M m, Images a, Images, Images o) {
             m.CopyImage(a, o);
             m.SubtractImageByConstantAndThreshold(o, c, 0.5f, 9.0f, 1);
         },
         [c](float p, float) { return p - c < 0.5f ? 9.0f : p - c; }},
        {"Threshold below, then scale",
         [c](M m, Images a, Images, Images o) {
             m.CopyImage(a, o);
             m.SubtractThresholdAndScaleImage(o, c, 0.5f, 9.0f, -1.5f);
         },
         [c](float p, float) { return (p - c < 0.5f ? 9.0f : p - c) * -1.5f; }},
        {"Threshold above, other mode",
         [](M m, Images a, Images, Images o) {
             m.CopyImage(a, o);
             m.SubtractImageByConstantAndThreshold(o, 0.5f, 9.0f, 0);
         },
         [](float p, float) { return p > 0.5f ? 9.0f : p; }},
        {"DivideImage", [](M m, Images a, Images b, Images o) { m.DivideImage(a, b, o); },
         [](float p, float q) { return q == 0.0f ? 0.0f : p / q; },
         [](float p, float q) { return p / (q < 1e-20f ? 1e20f : q); }},
        {"SquareRootImage", [](M m, Images a, Images, Images o) { m.SquareRootImage(a, o); },
         [](float p, float) { return p <= 0.0f ? 0.0f : std::sqrt(p); },
         [floor](float p, float) { return std::sqrt(floor(p)); }},
        {"LogImage", [](M m, Images a, Images, Images o) { m.LogImage(a, o); }, log, log, 5e-7f},
        {"PowerOfImageDivisionWithThreshold",
         [](M m, Images a, Images b, Images o) {
             m.PowerOfImageDivisionWithThreshold(a, b, o, 1.5f, 0.25f, -3.0f);
         },
         {},
         [floor](float p, float q) {
             const float quotient = std::min(p / floor(q), 10.0f);
             return quotient > 0 ? std::pow(quotient, 1.5f) : 0.0f;
         },
         2e-6f},
    };
}

} // namespace OvidaneTest
