#pragma once
#include <cstdint>
#include <string>

namespace Ovidane {

// Bytes free to the caller on the file system that holds the directory `path`; -1 when
// that can't be told, which callers take as no room at all. A path that is a directory is
// asked about itself (it may be a mount point of its own); any other path through its
// directory part, everything up to its last '/' or '\'. A path without either stands for
// the working directory.
int64_t GetFreeDiskBytes(const std::string& path);

} // namespace Ovidane
