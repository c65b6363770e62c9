#pragma once
// The stack the user named, as the library wants it: a raw file with known size, pixel
// type and spacing.
#include <string>
#include <vector>

#include "PrivateTempDir.h"
#include "TiffStack.h"

namespace ovdtool {

struct InputStack {
    std::string rawPath; // the user's raw file itself, or a copy of a TIFF's pixels
    StackShape shape;    // of one channel
    Spacing spacing;
    // A hyperstack's channels, each a raw copy of its pages; rawPath alone otherwise.
    std::vector<std::string> channelPaths;
};

struct InputOptions {
    std::string size;    // "WxHxD" for raw files
    std::string type;    // u8, u16, f32 for raw files
    std::string spacing; // "x,y,z" in micrometres; overrides the file's metadata
};

// "WxHxD" with each side 1 to 32767; `role` names the stack in the message.
StackShape ParseSize(const std::string& text, const std::string& role);
// "x,y,z" with three positive micrometre values.
Spacing ParseSpacing(const std::string& text);

// Raw files need --size and --type and must be exactly as long as they say; TIFF files
// bring their own size, type and (often) spacing. A hyperstack of several channels is
// refused unless `channels` allows it.
enum class Channels { One, Many };
InputStack OpenInput(const std::string& path, const InputOptions& options, const PrivateTempDir& temp,
                     const std::string& role, Channels channels = Channels::One);

} // namespace ovdtool
