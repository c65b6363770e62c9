#include "decon/PreviewFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "core/ClassLevelLockable.h"

namespace Ovidane {
namespace {

// Tag of the process-wide write guard.
struct cPreviewFileWriteGuard {};
using WriteLock = ClassLevelLockable<cPreviewFileWriteGuard>::Lock;

std::size_t SliceBytes(const cOvdImage<float>& image) {
    return std::size_t{image.GetSizeX()} * image.GetSizeY() * sizeof(float);
}

} // namespace

int WritePreviewFile(const cFloatImagePtr& image, const std::string& name) {
    WriteLock guard;
    std::FILE* file = std::fopen(name.c_str(), "wb");
    if (!file) {
        std::cerr << "Could not open file to write: " << name << "\n";
        return -1;
    }
    const std::size_t bytes = SliceBytes(*image);
    for (uint32_t z = 0; z < image->GetSizeZ(); ++z) {
        const float* slice = image->GetSlicePointer(z);
        if (std::fwrite(slice, 1, bytes, file) == bytes)
            continue;
        // One more try through a fresh stream, appending: a stream that has failed once
        // may keep failing for its own reasons while the file itself is fine. The text
        // of the failure is formed for a debugger's eyes only.
        char reason[512];
        std::snprintf(reason, sizeof reason, "error: %s : %s\n", name.c_str(),
                      std::strerror(errno));
        (void)reason;
        std::fclose(file);
        file = std::fopen(name.c_str(), "a+b");
        if (!file || std::fwrite(slice, 1, bytes, file) != bytes) {
            if (file)
                std::fclose(file);
            return 1;
        }
    }
    std::fclose(file);
    return 0;
}

int ReadPreviewFile(const cFloatImagePtr& image, const std::string& name) {
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (!file) {
        std::cerr << "Could not open file to read: " << name << "\n";
        return -1;
    }
    const std::size_t bytes = SliceBytes(*image);
    for (uint32_t z = 0; z < image->GetSizeZ(); ++z)
        (void)std::fread(image->GetSlicePointer(z), 1, bytes, file);
    std::fclose(file);
    return 0;
}

} // namespace Ovidane
