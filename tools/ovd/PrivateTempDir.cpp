#include "PrivateTempDir.h"

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "TiffStack.h"

namespace ovdtool {

PrivateTempDir::PrivateTempDir(const std::string& userChoice) {
    namespace fs = std::filesystem;
    const fs::path base = userChoice.empty() ? fs::temp_directory_path() : fs::path(userChoice);
    std::error_code error;
    if (!fs::is_directory(base, error))
        throw StackError(base.string() + ": temporary directory does not exist");
    std::string pattern = (base / "ovd-XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!::mkdtemp(buffer.data()))
        throw StackError(base.string() + ": cannot create a temporary directory there");
    mPath = buffer.data();
}

PrivateTempDir::~PrivateTempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

} // namespace ovdtool
