#include "InputStack.h"

#include <cstdio>
#include <filesystem>

namespace ovdtool {

StackShape ParseSize(const std::string& text, const std::string& role) {
    StackShape shape;
    char extra = 0;
    if (std::sscanf(text.c_str(), "%dx%dx%d%c", &shape.width, &shape.height, &shape.depth, &extra) != 3 ||
        shape.width < 1 || shape.height < 1 || shape.depth < 1 || shape.width > 32767 ||
        shape.height > 32767 || shape.depth > 32767)
        throw StackError(role + " size '" + text + "' is not WxHxD with each side 1 to 32767");
    return shape;
}

static PixelType ParseType(const std::string& text, const std::string& role) {
    if (text == "u8")
        return PixelType::U8;
    if (text == "u16")
        return PixelType::U16;
    if (text == "f32")
        return PixelType::F32;
    throw StackError(role + " type '" + text + "' is not one of u8, u16, f32");
}

Spacing ParseSpacing(const std::string& text) {
    Spacing spacing;
    char extra = 0;
    if (std::sscanf(text.c_str(), "%f,%f,%f%c", &spacing.x, &spacing.y, &spacing.z, &extra) != 3 ||
        !(spacing.x > 0 && spacing.y > 0 && spacing.z > 0))
        throw StackError("spacing '" + text + "' is not x,y,z with three positive micrometre values");
    return spacing;
}

namespace {

std::size_t BytesPerPixel(PixelType type) {
    return type == PixelType::U8 ? 1 : type == PixelType::U16 ? 2 : 4;
}

} // namespace

InputStack OpenInput(const std::string& path, const InputOptions& options, const PrivateTempDir& temp,
                     const std::string& role, Channels channels) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        throw StackError(path + ": no such file");
    InputStack stack;
    if (HasTiffExtension(path)) {
        const TiffStackInfo info = ProbeTiff(path);
        stack.shape = info.shape;
        stack.spacing = info.spacing;
        if (info.channels > 1 && channels == Channels::One)
            throw StackError(path + ": a hyperstack of " + std::to_string(info.channels) +
                             " channels; this command takes one (save each channel as a stack of "
                             "its own)");
        for (int c = 0; c < info.channels; ++c)
            stack.channelPaths.push_back(
                temp.File(role + (info.channels > 1 ? "-c" + std::to_string(c + 1) : "") + ".raw"));
        stack.rawPath = stack.channelPaths.front();
        TiffToRaw(path, stack.channelPaths);
    } else {
        if (options.size.empty() || options.type.empty())
            throw StackError(path + ": a raw " + role + " needs its size and type (--size WxHxD --type u8|u16|f32)");
        stack.shape = ParseSize(options.size, role);
        stack.shape.type = ParseType(options.type, role);
        stack.rawPath = path;
        stack.channelPaths = {path};
        const uintmax_t expected = uintmax_t(stack.shape.width) * stack.shape.height *
                                   stack.shape.depth * BytesPerPixel(stack.shape.type);
        const uintmax_t actual = fs::file_size(path, error);
        if (actual != expected)
            throw StackError(path + ": file has " + std::to_string(actual) + " bytes but " + options.size +
                             " " + options.type + " needs " + std::to_string(expected) +
                             "; check --size and --type");
    }
    if (!options.spacing.empty())
        stack.spacing = ParseSpacing(options.spacing);
    if (!(stack.spacing.x > 0 && stack.spacing.y > 0 && stack.spacing.z > 0))
        throw StackError(path + ": the pixel spacing is unknown; give it with " +
                         (role == "psf" ? "--psf-spacing" : "--spacing") + " x,y,z (micrometres)");
    return stack;
}

} // namespace ovdtool
