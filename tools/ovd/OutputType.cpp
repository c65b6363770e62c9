#include "OutputType.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "TiffStack.h"

namespace ovdtool {

void AddOutputTypeOptions(CLI::App* command, OutputTypeOptions& o) {
    command
        ->add_option("--output-type", o.type,
                     "TIFF pixels: f32 (as restored) or u16 (scaled, see --scale)")
        ->check(CLI::IsMember({"f32", "u16"}))
        ->capture_default_str();
    command->add_option(
        "--scale", o.scale,
        "u16: auto (largest value to 65535), none (as is) or a factor; the factor is "
        "recorded in the TIFF as ovd_scale");
}

namespace {

// 0 when the text is neither auto nor none nor a positive finite number.
double ParseFactor(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return end != text.c_str() && !*end && std::isfinite(value) && value > 0 ? value : 0.0;
}

} // namespace

void CheckOutputType(const OutputTypeOptions& o, bool tiffOutput) {
    if (o.type != "u16") {
        if (!o.scale.empty())
            throw StackError("--scale applies to 16-bit output; add --output-type u16");
        return;
    }
    if (!tiffOutput)
        throw StackError("--output-type u16 needs a TIFF output (.tif), which records the scale");
    if (!o.scale.empty() && o.scale != "auto" && o.scale != "none" && ParseFactor(o.scale) == 0.0)
        throw StackError("--scale '" + o.scale + "' is not auto, none or a positive number");
}

ValueRange RangeOfRawFloat(const std::vector<std::string>& rawPaths) {
    ValueRange range{INFINITY, -INFINITY};
    std::vector<float> block(1 << 16);
    for (const std::string& path : rawPaths) {
        std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(path.c_str(), "rb"),
                                                           &std::fclose);
        if (!in)
            throw StackError(path + ": cannot be read");
        std::size_t count;
        while ((count = std::fread(block.data(), sizeof(float), block.size(), in.get())) > 0) {
            const auto [low, high] =
                std::minmax_element(block.begin(), block.begin() + long(count));
            range.min = std::min(range.min, *low);
            range.max = std::max(range.max, *high);
        }
    }
    if (range.min > range.max)
        range = ValueRange{};
    return range;
}

double ScaleFactor(const OutputTypeOptions& o, const ValueRange& range) {
    if (o.scale == "none")
        return 1.0;
    if (o.scale.empty() || o.scale == "auto")
        return range.max > 0 ? 65535.0 / double(range.max) : 1.0;
    return ParseFactor(o.scale);
}

} // namespace ovdtool
