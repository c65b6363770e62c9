#pragma once
// The pixels of a restored TIFF: float as restored, or 16-bit with a scale that maps the
// restored intensities into 0-65535 and is recorded so that they can be recovered.
#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace ovdtool {

struct OutputTypeOptions {
    std::string type = "f32"; // f32 or u16
    std::string scale;        // u16: auto (the default), none or a positive factor
};

void AddOutputTypeOptions(CLI::App* command, OutputTypeOptions& options);

// Throws a StackError for a scale that isn't auto, none or a positive finite number, for a
// scale without u16, and for u16 into a raw file, which has nowhere to record the scale.
void CheckOutputType(const OutputTypeOptions& options, bool tiffOutput);

struct ValueRange {
    float min = 0, max = 0;
};

// The range of raw float stacks, read in pieces.
ValueRange RangeOfRawFloat(const std::vector<std::string>& rawPaths);

// stored = restored x factor, rounded and clipped to 0-65535. auto maps the largest value to
// 65535 (1 where nothing is above 0), none is 1.
double ScaleFactor(const OutputTypeOptions& options, const ValueRange& range);

} // namespace ovdtool
