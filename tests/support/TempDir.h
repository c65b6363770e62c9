#pragma once
#include <filesystem>
#include <string>

namespace OvidaneTest {

// A fresh, empty directory under the system temp dir, removed with everything in it
// when the object goes.
class TempDir {
public:
    explicit TempDir(const std::string& tag = "ovd-test");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& Path() const { return mPath; }
    std::string File(const std::string& name) const { return (mPath / name).string(); }
    // Number of entries in the directory.
    std::size_t Count() const;

private:
    std::filesystem::path mPath;
};

} // namespace OvidaneTest
