#include "largevolume/StackFileCheck.h"

#include "platform/MemoryFiles.h"

namespace Ovidane {

bool FileHoldsStack(const std::string& name, uint32_t width, uint32_t height, uint32_t depth,
                    std::size_t elementBytes) {
    const int64_t length = Platform::FileBytes(name);
    if (length < 0)
        return false;
    const std::uintmax_t needed = std::uintmax_t{width} * height * depth * elementBytes;
    return std::uintmax_t(length) >= needed;
}

} // namespace Ovidane
