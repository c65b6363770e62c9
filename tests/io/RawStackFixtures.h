#pragma once
// Stacks with a known value at every pixel and plain byte access to files, for the raw
// stack tests. Expected files are built here byte by byte in little-endian order,
// independently of how the library lays pixels out.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/cException.h"
#include "image/cOvdImage.h"
#include "support/RawStack.h"
#include "support/TestImages.h"

namespace OvidaneTest {

// Differs between neighbours along every axis and uses both bytes of a 16-bit pixel and
// the sign and fraction of a float, so a misplaced or byte-swapped pixel shows.
template <class T> T PatternValue(uint32_t x, uint32_t y, uint32_t z) {
    const uint32_t n = (z * 131u + y) * 1021u + x * 7u + 3u;
    if constexpr (sizeof(T) == 1)
        return T(n & 0xFFu);
    else if constexpr (sizeof(T) == 2)
        return T((n * 257u) & 0xFFFFu);
    else
        return T(float(n) * 0.5f - 100.25f);
}

template <class T>
Ovidane::cCountedPtr<Ovidane::cOvdImage<T>> MakeImage(uint32_t x, uint32_t y, uint32_t z) {
    return new Ovidane::cOvdImage<T>(Ovidane::cImageDimensions{x, y, z}, Ovidane::Contiguous3D,
                                     "test");
}

template <class T, class F> void ForEachPixel(const Ovidane::cOvdImage<T>& image, F f) {
    for (uint32_t z = 0; z < image.GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image.GetSizeY(); ++y)
            for (uint32_t x = 0; x < image.GetSizeX(); ++x)
                f(*image.GetPixelPointer(x, y, z), x, y, z);
}

// The pattern everywhere, or `value` everywhere.
template <class T> void Fill(const Ovidane::cOvdImage<T>& image) {
    ForEachPixel(image,
                 [](T& p, uint32_t x, uint32_t y, uint32_t z) { p = PatternValue<T>(x, y, z); });
}
template <class T> void Fill(const Ovidane::cOvdImage<T>& image, T value) {
    ForEachPixel(image, [&](T& p, uint32_t, uint32_t, uint32_t) { p = value; });
}

// Pixels that differ from: the pattern at (x + ox, y + oy, z + oz) inside the box of
// size bx, by, bz at (tx, ty, tz), and `outside` everywhere else.
template <class T>
int Mismatches(const Ovidane::cOvdImage<T>& image, uint32_t ox, uint32_t oy, uint32_t oz,
               uint32_t bx, uint32_t by, uint32_t bz, T outside, uint32_t tx = 0, uint32_t ty = 0,
               uint32_t tz = 0) {
    int wrong = 0;
    ForEachPixel(image, [&](T& p, uint32_t x, uint32_t y, uint32_t z) {
        const bool in = x - tx < bx && y - ty < by && z - tz < bz; // unsigned: below is out
        wrong += p != (in ? PatternValue<T>(x - tx + ox, y - ty + oy, z - tz + oz) : outside);
    });
    return wrong;
}

template <class T> void AppendLittleEndian(std::vector<uint8_t>& bytes, T value) {
    uint64_t bits;
    if constexpr (sizeof(T) == 4)
        bits = std::bit_cast<uint32_t>(value);
    else
        bits = value;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes.push_back(uint8_t(bits >> (8 * i)));
}

// The file of the pattern box x0..x1, y0..y1, z0..z1: x fastest, then y, then z.
template <class T>
std::vector<uint8_t> PatternBytes(uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1,
                                  uint32_t z1) {
    std::vector<uint8_t> bytes;
    for (uint32_t z = z0; z <= z1; ++z)
        for (uint32_t y = y0; y <= y1; ++y)
            for (uint32_t x = x0; x <= x1; ++x)
                AppendLittleEndian(bytes, PatternValue<T>(x, y, z));
    return bytes;
}

// A file's bytes, as the expectations above hold them; a missing file is empty.
inline std::vector<uint8_t> FileBytes(const std::string& path) {
    return ReadRaw<uint8_t>(path);
}

// The call must fail with the library's exception for refused parameters.
inline void ExpectRefused(const std::function<void()>& call) {
    EXPECT_NE(FailureOf(call), "");
}

} // namespace OvidaneTest
