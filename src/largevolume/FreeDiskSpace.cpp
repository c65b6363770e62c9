#include "largevolume/FreeDiskSpace.h"

#include <filesystem>
#include <system_error>

#include "platform/Platform.h"

namespace Ovidane {

int64_t GetFreeDiskBytes(const std::string& path) {
    std::string probe = path;
    std::error_code error;
    if (probe.empty() || !std::filesystem::is_directory(probe, error)) {
        const std::size_t cut = probe.find_last_of("/\\");
        probe = cut == std::string::npos ? std::string(".") : probe.substr(0, cut + 1);
    }
    return Platform::FreeDiskBytes(probe);
}

} // namespace Ovidane
