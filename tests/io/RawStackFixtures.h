#pragma once
// Small stacks with a known value at every pixel, and plain byte access to files, for the
// raw stack reader and writer tests. Expected file contents are built here byte by byte
// in little-endian order, independently of how the library lays pixels out.
#include <bit>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/cCountedPtr.h"
#include "core/cException.h"
#include "image/cOvdImage.h"

namespace OvidaneTest {

// A value that differs between neighbours in every axis and uses both bytes of a 16-bit
// pixel and the sign and fraction of a float, so a misplaced or byte-swapped pixel shows.
template <class T> T PatternValue(uint32_t x, uint32_t y, uint32_t z) {
    const uint32_t n = (z * 131u + y) * 1021u + x * 7u + 3u;
    if constexpr (sizeof(T) == 1)
        return static_cast<T>(n & 0xFFu);
    else if constexpr (sizeof(T) == 2)
        return static_cast<T>((n * 257u) & 0xFFFFu);
    else
        return static_cast<T>(static_cast<float>(n) * 0.5f - 100.25f);
}

template <class T>
Ovidane::cCountedPtr<Ovidane::cOvdImage<T>>
MakeImage(uint32_t x, uint32_t y, uint32_t z,
          Ovidane::ovdImageLayout layout = Ovidane::Contiguous3D) {
    return new Ovidane::cOvdImage<T>(Ovidane::cImageDimensions{x, y, z}, layout, "rawio test");
}

template <class T> void Fill(const Ovidane::cOvdImage<T>& image, T value) {
    for (uint32_t z = 0; z < image.GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image.GetSizeY(); ++y)
            for (uint32_t x = 0; x < image.GetSizeX(); ++x)
                *image.GetPixelPointer(x, y, z) = value;
}

// Pixel (x, y, z) of the image holds PatternValue at (x + ox, y + oy, z + oz).
template <class T>
void FillPattern(const Ovidane::cOvdImage<T>& image, uint32_t ox = 0, uint32_t oy = 0,
                 uint32_t oz = 0) {
    for (uint32_t z = 0; z < image.GetSizeZ(); ++z)
        for (uint32_t y = 0; y < image.GetSizeY(); ++y)
            for (uint32_t x = 0; x < image.GetSizeX(); ++x)
                *image.GetPixelPointer(x, y, z) = PatternValue<T>(x + ox, y + oy, z + oz);
}

template <class T> void AppendLittleEndian(std::vector<uint8_t>& bytes, T value) {
    uint64_t bits;
    if constexpr (sizeof(T) == 4)
        bits = std::bit_cast<uint32_t>(value);
    else
        bits = value;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes.push_back(static_cast<uint8_t>(bits >> (8 * i)));
}

// The raw file of a W x H x D stack of pattern values: x fastest, then y, then z.
template <class T>
std::vector<uint8_t> PatternFileBytes(uint32_t width, uint32_t height, uint32_t depth) {
    std::vector<uint8_t> bytes;
    for (uint32_t z = 0; z < depth; ++z)
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                AppendLittleEndian(bytes, PatternValue<T>(x, y, z));
    return bytes;
}

inline std::vector<uint8_t> FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

inline void WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// The call must fail with the library's exception for refused parameters.
inline void ExpectRefused(const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << "accepted";
    } catch (const Ovidane::cException& e) {
        EXPECT_EQ(e.GetCode(), 2);
    }
}

} // namespace OvidaneTest
