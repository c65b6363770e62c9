#pragma once
#include <string>

namespace ovdtool {

// A directory of our own for one run's temporary files: a fresh private directory under
// the system's temp dir, or under the directory the user named. Whatever the run leaves
// in it is removed with it, also after a failure or a Ctrl-C.
class PrivateTempDir {
public:
    explicit PrivateTempDir(const std::string& userChoice);
    ~PrivateTempDir();
    PrivateTempDir(const PrivateTempDir&) = delete;
    PrivateTempDir& operator=(const PrivateTempDir&) = delete;

    const std::string& Path() const { return mPath; }
    std::string File(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

} // namespace ovdtool
