#pragma once
// Multi-page grayscale TIFF stacks: what the tool reads from microscopes and writes back.
#include <cstdint>
#include <stdexcept>
#include <string>

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
    StackShape shape;
    Spacing spacing; // from ImageJ or OME metadata when present
};

// A stack the tool can't read or write; the text says what is wrong and what to do.
struct StackError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

TiffStackInfo ProbeTiff(const std::string& path);

// Streams the pages of a TIFF stack into a raw file of the same pixel type.
void TiffToRaw(const std::string& tiffPath, const std::string& rawPath);

// Streams a raw float stack into a float TIFF with ImageJ spacing metadata. A write that
// fails (a full disk, a file size limit) throws a StackError naming `shownName`, the name the
// user gave, since `tiffPath` may be a temporary one.
void RawFloatToTiff(const std::string& rawPath, const std::string& tiffPath,
                    const StackShape& shape, const Spacing& spacing, const std::string& shownName);

bool HasTiffExtension(const std::string& path);

} // namespace ovdtool
