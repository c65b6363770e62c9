#include "largevolume/StackFileCheck.h"

#include <filesystem>
#include <system_error>

namespace Ovidane {

bool FileHoldsStack(const std::string& name, uint32_t width, uint32_t height, uint32_t depth,
                    std::size_t elementBytes) {
    std::error_code error;
    const std::uintmax_t length = std::filesystem::file_size(name, error);
    if (error)
        return false;
    const std::uintmax_t needed = std::uintmax_t{width} * height * depth * elementBytes;
    return length >= needed;
}

} // namespace Ovidane
