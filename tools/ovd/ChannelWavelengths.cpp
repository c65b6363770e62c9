#include "ChannelWavelengths.h"

#include <cmath>
#include <string>

#include "TiffStack.h"

namespace ovdtool {

void AddWavelengthOptions(CLI::App* command, WavelengthOptions& o) {
    command
        ->add_option_function<std::vector<float>>(
            "--wavelength",
            [&o](const std::vector<float>& values) {
                o.values = values;
                o.given = true;
            },
            "emission wavelength, um (or nm when above 10); one per channel: 461,520,610")
        ->delimiter(',')
        ->default_str("0.52");
    command->add_flag("--same-wavelength", o.same, "use the one --wavelength for every channel");
}

std::vector<float> ChannelWavelengths(const WavelengthOptions& o, int channels) {
    const std::string count = std::to_string(channels);
    if (int(o.values.size()) != channels) {
        if (o.values.size() != 1 || !o.same) {
            if (o.values.size() == 1)
                throw StackError("IN has " + count +
                                 " channels: give each its wavelength (--wavelength " +
                                 "461,520,610), or add --same-wavelength to use one for all");
            throw StackError("--wavelength gives " + std::to_string(o.values.size()) +
                             " values for " + count + " channel" + (channels > 1 ? "s" : ""));
        }
    }
    std::vector<float> wavelengths;
    for (int c = 0; c < channels; ++c) {
        const float value = o.values[o.values.size() == 1 ? 0 : std::size_t(c)];
        if (!std::isfinite(value) || !(value > 0))
            throw StackError("--wavelength values must be positive numbers");
        wavelengths.push_back(value > 10.0f ? value / 1000.0f : value);
    }
    return wavelengths;
}

} // namespace ovdtool
