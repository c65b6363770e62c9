#include "platform/MemoryFiles.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>

namespace Ovidane::Platform {
namespace {

struct cRegistry {
    std::mutex lock;
    std::map<std::string, cMemoryFilePtr> files;
};

cRegistry& Registry() {
    // Never destroyed: the temporary-file generator deletes what is left at the end of the
    // process, possibly after this file's statics have gone.
    static cRegistry* registry = new cRegistry;
    return *registry;
}

} // namespace

namespace MemoryFiles {

bool Create(const std::string& name) {
    cRegistry& registry = Registry();
    std::lock_guard<std::mutex> hold(registry.lock);
    return registry.files.emplace(name, std::make_shared<cMemoryFile>()).second;
}

cMemoryFilePtr Find(const std::string& name) {
    cRegistry& registry = Registry();
    std::lock_guard<std::mutex> hold(registry.lock);
    const auto found = registry.files.find(name);
    return found == registry.files.end() ? nullptr : found->second;
}

} // namespace MemoryFiles

bool RemoveFile(const std::string& name) {
    {
        cRegistry& registry = Registry();
        std::lock_guard<std::mutex> hold(registry.lock);
        // A handle still open on the file keeps its contents until it closes, as on disk.
        if (registry.files.erase(name) != 0)
            return true;
    }
    return std::remove(name.c_str()) == 0;
}

int64_t FileBytes(const std::string& name) {
    if (const cMemoryFilePtr file = MemoryFiles::Find(name))
        return static_cast<int64_t>(file->Size());
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(name, error);
    return error ? -1 : static_cast<int64_t>(bytes);
}

} // namespace Ovidane::Platform
