#include "SafeOutput.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TiffStack.h"

namespace ovdtool {
namespace fs = std::filesystem;

namespace {

// The system's own limit on a chain of links.
constexpr int kMostLinks = 40;

std::string SystemError(int error) {
    return std::strerror(error);
}

// The file a name stands for once every symbolic link on the way is followed, also to a file
// that doesn't exist yet. Relative links count from the directory of the link.
fs::path ResolveLinks(const std::string& name) {
    fs::path path = name;
    for (int links = 0;; ++links) {
        std::error_code error;
        if (!fs::is_symlink(fs::symlink_status(path, error)))
            return path;
        if (links == kMostLinks)
            throw StackError(name + ": too many levels of symbolic links");
        const fs::path next = fs::read_symlink(path, error);
        if (error)
            throw StackError(name + ": the symbolic link can't be read (" + error.message() + ")");
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
}

bool SameFile(const std::string& a, const std::string& b) {
    std::error_code errorA, errorB;
    if (fs::exists(a, errorA) && fs::exists(b, errorB))
        return fs::equivalent(a, b, errorA);
    // At least one doesn't exist yet: the same name once links and dots are resolved.
    const fs::path pathA = fs::weakly_canonical(fs::absolute(ResolveLinks(a)), errorA);
    const fs::path pathB = fs::weakly_canonical(fs::absolute(ResolveLinks(b)), errorB);
    return !errorA && !errorB && pathA == pathB;
}

} // namespace

void RefuseSharedFiles(const std::vector<NamedFile>& inputs,
                       const std::vector<NamedFile>& outputs) {
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const NamedFile& output = outputs[i];
        if (output.path.empty())
            continue;
        std::vector<NamedFile> others = inputs;
        others.insert(others.end(), outputs.begin(), outputs.begin() + i);
        for (const NamedFile& other : others)
            if (!other.path.empty() && SameFile(output.path, other.path))
                throw StackError(output.role + " '" + output.path + "' is the same file as " +
                                 other.role + " '" + other.path + "'; name another file to write");
    }
}

void RefuseExistingOutputs(const std::vector<NamedFile>& outputs) {
    for (const NamedFile& output : outputs) {
        if (output.path.empty())
            continue;
        std::error_code error;
        if (fs::is_regular_file(fs::status(ResolveLinks(output.path), error)))
            throw OutputExists(output.role + " '" + output.path +
                               "' already exists; add --overwrite to replace it, or name another file");
    }
}

std::string DefaultOutputName(const std::string& input) {
    const fs::path path = input;
    std::string stem = path.stem().string();
    // An OME-TIFF's name ends in two extensions; the result is no OME-TIFF.
    const std::string ome = ".ome";
    if (stem.size() > ome.size() && stem.compare(stem.size() - ome.size(), ome.size(), ome) == 0)
        stem.resize(stem.size() - ome.size());
    return (path.parent_path() / (stem + "_ovd.tif")).string();
}

SafeOutput::SafeOutput(const std::string& name) : mName(name) {
    const fs::path target = ResolveLinks(name);
    mTarget = target.string();
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (fs::is_directory(status))
        throw StackError(name + ": is a directory; name a file to write");
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        mDirect = true;
        mWritePath = mTarget;
        return;
    }
    // A hidden name of this process beside the target. O_EXCL never takes over a file that
    // is there, and the permissions follow the user's umask as for any new file.
    const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
    const std::string prefix =
        "." + target.filename().string() + ".ovd-" + std::to_string(::getpid()) + "-";
    for (int attempt = 0;; ++attempt) {
        const std::string candidate = (directory / (prefix + std::to_string(attempt))).string();
        const int file = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file >= 0) {
            ::close(file);
            mWritePath = candidate;
            return;
        }
        if (errno != EEXIST || attempt == 1000)
            throw StackError(name + ": cannot write in " + directory.string() + " (" +
                             SystemError(errno) + ")");
    }
}

SafeOutput::~SafeOutput() {
    if (!mDirect && !mCommitted && !mWritePath.empty())
        ::unlink(mWritePath.c_str());
}

void SafeOutput::Commit() {
    if (mDirect || mCommitted)
        return;
    // The rename is atomic, but only data already on the disk survive a crash right after it.
    const int file = ::open(mWritePath.c_str(), O_WRONLY | O_CLOEXEC);
    const bool synced = file >= 0 && ::fsync(file) == 0;
    const int error = errno;
    if (file >= 0)
        ::close(file);
    if (!synced)
        throw StackError(mName + ": cannot be written (" + SystemError(error) + ")");
    struct stat replaced {};
    if (::stat(mTarget.c_str(), &replaced) == 0)
        ::chmod(mWritePath.c_str(), replaced.st_mode & 07777);
    if (::rename(mWritePath.c_str(), mTarget.c_str()) != 0)
        throw StackError(mName + ": cannot be put in place (" + SystemError(errno) + ")");
    mCommitted = true;
}

} // namespace ovdtool
