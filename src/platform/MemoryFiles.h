#pragma once
// Temporary files held in memory. A run whose temporary files fit into the memory that its
// budget leaves beyond its working images keeps them here rather than on disk: they need
// no durability, and the system's file calls, page cache and block allocation cost such a
// run more than its transforms do. A memory file has a name like any other; a raw file
// handle opened on that name reads and writes its memory, and RemoveFile and FileBytes
// answer for both kinds. Nothing of it appears in any directory.
#include <cstdint>
#include <string>

#include "platform/cMemoryFile.h"

namespace Ovidane::Platform::MemoryFiles {

// Makes an empty memory file of this name; false if one exists already.
bool Create(const std::string& name);
// The memory file of this name, or null.
cMemoryFilePtr Find(const std::string& name);

} // namespace Ovidane::Platform::MemoryFiles

namespace Ovidane::Platform {

// Deletes the memory file of this name, else the file on disk; true when one went.
bool RemoveFile(const std::string& name);
// The length of the memory file of this name, else of the file on disk; -1 when neither
// exists.
int64_t FileBytes(const std::string& name);

} // namespace Ovidane::Platform
