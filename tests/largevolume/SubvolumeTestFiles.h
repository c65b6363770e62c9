#pragma once
// Raw float stacks written and read here with plain streams, independently of the
// library's file classes, and the stack patterns the subvolume tests cut and join.
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/cImageDimensions.h"

namespace OvidaneTest {

struct Stack {
    Ovidane::cImageDimensions size;
    std::vector<float> pixels;

    float& At(uint32_t x, uint32_t y, uint32_t z) {
        return pixels[(std::size_t{z} * size.y + y) * size.x + x];
    }
    float At(uint32_t x, uint32_t y, uint32_t z) const {
        return pixels[(std::size_t{z} * size.y + y) * size.x + x];
    }
};

// Positive, different at every pixel and not smooth, so that a pixel taken from the
// wrong place, or weighted wrongly at a seam, shows.
inline Stack PatternStack(Ovidane::cImageDimensions size) {
    Stack stack{size, std::vector<float>(size.Voxels())};
    for (uint32_t z = 0; z < size.z; ++z)
        for (uint32_t y = 0; y < size.y; ++y)
            for (uint32_t x = 0; x < size.x; ++x)
                stack.At(x, y, z) = 100.0f + 30.0f * z + 0.5f * float((x * 37 + y * 101) % 211) +
                                    10.0f * std::sin(0.3f * float(x)) * std::cos(0.2f * float(y));
    return stack;
}

inline void WriteStack(const std::string& name, const std::vector<float>& pixels) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(pixels.data()),
               static_cast<std::streamsize>(pixels.size() * sizeof(float)));
}

inline std::vector<float> ReadStack(const std::string& name) {
    std::ifstream file(name, std::ios::binary | std::ios::ate);
    if (!file)
        return {};
    std::vector<float> pixels(static_cast<std::size_t>(file.tellg()) / sizeof(float));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(pixels.data()),
              static_cast<std::streamsize>(pixels.size() * sizeof(float)));
    return pixels;
}

inline bool Exists(const std::string& name) {
    return std::filesystem::exists(name);
}

} // namespace OvidaneTest
