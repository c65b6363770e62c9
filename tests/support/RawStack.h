#pragma once
// Raw stacks on disk for the tests, written and read with plain streams, independently of
// the library's file classes: no header, pixels in machine order, x fastest, then y, then z.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace OvidaneTest {

template <class T> void WriteRaw(const std::string& path, const std::vector<T>& values) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(values.data()),
               std::streamsize(values.size() * sizeof(T)));
}

// Each value converted to T first, as a stack of that pixel type holds it.
template <class T> void WriteRawAs(const std::string& path, const std::vector<float>& values) {
    WriteRaw(path, std::vector<T>(values.begin(), values.end()));
}

// As a stack of 1-byte, 2-byte (unsigned) or 4-byte (float) pixels holds the values.
inline void WriteRawOfBytes(const std::string& path, const std::vector<float>& values,
                            unsigned pixelBytes) {
    if (pixelBytes == 1)
        WriteRawAs<unsigned char>(path, values);
    else if (pixelBytes == 2)
        WriteRawAs<unsigned short>(path, values);
    else
        WriteRaw(path, values);
}

inline std::vector<char> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The whole pixels in the file; a missing file reads as empty, a trailing part pixel is left.
template <class T = float> std::vector<T> ReadRaw(const std::string& path) {
    const std::vector<char> bytes = ReadBytes(path);
    std::vector<T> values(bytes.size() / sizeof(T));
    std::copy(bytes.begin(), bytes.begin() + std::ptrdiff_t(values.size() * sizeof(T)),
              reinterpret_cast<char*>(values.data()));
    return values;
}

} // namespace OvidaneTest
