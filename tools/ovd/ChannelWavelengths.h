#pragma once
// The emission wavelength of each channel of a restore: one value per channel, or one for all
// only when the user says so, since a wrong wavelength gives a wrong PSF without a word.
#include <CLI/CLI.hpp>

#include <vector>

namespace ovdtool {

struct WavelengthOptions {
    std::vector<float> values{0.52f}; // micrometres; values above 10 are read as nanometres
    bool same = false;
    bool given = false;
};

void AddWavelengthOptions(CLI::App* command, WavelengthOptions& options);

// The wavelengths of `channels` channels, in micrometres. Throws a StackError for a count
// that doesn't match (one value for several channels without --same-wavelength, the default
// for several channels) and for values that aren't positive finite numbers.
std::vector<float> ChannelWavelengths(const WavelengthOptions& options, int channels);

} // namespace ovdtool
