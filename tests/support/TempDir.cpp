#include "support/TempDir.h"

#include <atomic>
#include <unistd.h>

namespace OvidaneTest {

TempDir::TempDir(const std::string& tag) {
    static std::atomic<int> serial{0};
    mPath = std::filesystem::temp_directory_path() /
            (tag + "-" + std::to_string(::getpid()) + "-" + std::to_string(serial++));
    std::filesystem::remove_all(mPath);
    std::filesystem::create_directories(mPath);
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::size_t TempDir::Count() const {
    std::size_t n = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(mPath))
        ++n;
    return n;
}

} // namespace OvidaneTest
