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

} // namespace OvidaneTest
