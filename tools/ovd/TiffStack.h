#pragma once
// Multi-page grayscale TIFF stacks: what the tool reads from microscopes and writes back.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace ovdtool {

enum class PixelType { U8, U16, F32 };

struct Spacing {
    float x = 0, y = 0, z = 0; // micrometres; 0 = unknown
};

struct StackShape {
    int width = 0, height = 0, depth = 0;
    PixelType type = PixelType::F32;
};

struct TiffStackInfo {
    StackShape shape; // depth: the slices of one channel
    Spacing spacing;  // from ImageJ or OME metadata when present
    int channels = 1; // of an ImageJ or OME hyperstack
    bool channelFastest = true; // page order: c, z (ImageJ) or z, c (OME's XYZCT)
};

// A stack the tool can't read or write; the text says what is wrong and what to do.
struct StackError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

TiffStackInfo ProbeTiff(const std::string& path);

// Streams the pages of a TIFF stack into raw files of the same pixel type: one per channel.
void TiffToRaw(const std::string& tiffPath, const std::vector<std::string>& rawPaths);

// How restored stacks are written: one raw float file per channel, interleaved page by page
// (channel fastest) into an ImageJ hyperstack with its spacing; float pixels, or 16-bit ones
// of value x u16Scale, rounded and clipped to 0-65535, the scale recorded as ovd_scale.
struct TiffOutput {
    StackShape shape; // width, height and depth of one channel
    Spacing spacing;
    double u16Scale = 0; // 0: float pixels
};

// Streams raw float stacks into a TIFF and returns how many pixels were clipped. A write
// that fails (a full disk, a file size limit) throws a StackError naming `shownName`, the
// name the user gave, since `tiffPath` may be a temporary one.
uint64_t RawFloatToTiff(const std::vector<std::string>& rawPaths, const std::string& tiffPath,
                        const TiffOutput& layout, const std::string& shownName);
// One float stack.
void RawFloatToTiff(const std::string& rawPath, const std::string& tiffPath,
                    const StackShape& shape, const Spacing& spacing, const std::string& shownName);

bool HasTiffExtension(const std::string& path);

} // namespace ovdtool
