#pragma once
// The first half of a run: disk test, the look at the input stack (or its conversion to
// float, for the search), and a look at the values of a float file.
#include <cstddef>
#include <cstdint>
#include <string>

namespace Ovidane {

// Source of "bytes free to the caller on the file system of a path"; -1 means the query
// failed. Replaceable so that tests can simulate a full disk; null restores the system's.
using ovdDiskSpaceQuery = int64_t (*)(const std::string& path);
void ovdSetDiskSpaceQuery(ovdDiskSpaceQuery query);

// True when the file system of `path` holds at least `neededKilobytes` (units of 1024
// bytes free, as the caller's estimate is in thousands of bytes). A failed query counts
// as no space.
bool ovdCheckDiskSpace(uint32_t neededKilobytes, const std::string& path);

// Converts a raw 8-bit or 16-bit stack to a raw float stack by value, one slice at a
// time. Results: 0 done, 4 no buffer memory, 7 input unreadable or short, 8 output not
// writable or short, 1 anything else.
// Exists for Source = uint8_t and uint16_t.
template <class Source>
int ovdConvertToFloatFile(const std::string& input, const std::string& output, int width,
                          int height, int depth);

// Whether a raw stack of `pixelBytes` per pixel can be read whole as it is: 0, or 7 with
// the reason recorded as a conversion records it (unreadable, or shorter than its stated
// size and at which slice).
int ovdCheckStackFile(const std::string& input, int width, int height, int depth,
                      std::size_t pixelBytes);

// What the first `count` values of a raw float file hold: whether all are finite, and the
// sum of their magnitudes (in double, so it cannot overflow for finite floats). A file
// shorter than `count` values is read as far as it goes; that it is short is for its
// reader to report. False when the file cannot be opened.
struct ovdFloatFileValues {
    bool finite = true;
    double magnitudeSum = 0.0;
};
bool ovdScanFloatFile(const std::string& path, uint64_t count, ovdFloatFileValues& values);

} // namespace Ovidane
