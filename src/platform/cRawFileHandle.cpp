#include "platform/cRawFileHandle.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "platform/MemoryFiles.h"
#include "platform/Platform.h"

namespace Ovidane::Platform {

static_assert(sizeof(off_t) >= 8, "file offsets must be 64-bit");

namespace {

// Linux moves at most a little under 2 GiB per read or write; larger transfers are split
// into pieces of this size, which keeps every piece aligned.
constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;

// strerror_r comes in two forms, by the C library's choice; both end here as text.
[[maybe_unused]] const char* ErrorString(int result, const char* buffer) {
    return result == 0 ? buffer : "Unknown error";
}
[[maybe_unused]] const char* ErrorString(const char* result, const char*) {
    return result;
}

// How far a transfer got, and why it stopped short: 0 when it did not, the system's error
// number, or kNothingMoved when a piece moved no byte at all.
constexpr int kNothingMoved = -1;
struct Transferred {
    std::size_t bytes = 0;
    int error = 0;
};

// Moves `bytes` in pieces through `move(done, piece)`, a pread or pwrite at offset `done`,
// and retries a piece that a signal interrupted.
template <class Move> Transferred TransferAll(std::size_t bytes, Move move) {
    Transferred t;
    while (t.bytes < bytes) {
        const ssize_t n = move(t.bytes, std::min(bytes - t.bytes, kLargestTransfer));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            t.error = n < 0 ? errno : kNothingMoved;
            break;
        }
        t.bytes += static_cast<std::size_t>(n);
    }
    return t;
}

// Reads of this size and more are split into pieces of kReadPiece bytes, read by several
// threads at once. Copying out of the page cache runs on the calling thread in the kernel,
// at a fraction of the memory's speed; writes to one file hold its lock and gain nothing.
constexpr std::size_t kParallelRead = std::size_t{4} << 20;
constexpr std::size_t kReadPiece = std::size_t{1} << 20;

// Runs gathered by one write call: the system takes at most IOV_MAX (1024 on Linux).
constexpr std::size_t kRunsPerCall = 1024;

// Reads `bytes` in pieces of `pieceBytes` (the last one shorter) on several threads, piece i
// from the file at offset + i * fileStride into target + i * pieceBytes: how far the target
// was filled without a gap, and the reason of the first piece that came up short.
Transferred ReadInPieces(int descriptor, char* target, std::size_t bytes, uint64_t offset,
                         std::size_t pieceBytes, uint64_t fileStride) {
    const std::size_t count = (bytes + pieceBytes - 1) / pieceBytes;
    std::vector<Transferred> pieces(count);
    struct cJob {
        int descriptor;
        char* target;
        std::size_t bytes;
        uint64_t offset;
        std::size_t pieceBytes;
        uint64_t fileStride;
        Transferred* pieces;
    } job{descriptor, target, bytes, offset, pieceBytes, fileStride, pieces.data()};
    RunParallel(static_cast<int64_t>(count), &job, [](void* context, int64_t i) {
        const cJob& j = *static_cast<const cJob*>(context);
        const std::size_t first = static_cast<std::size_t>(i) * j.pieceBytes;
        const std::size_t size = std::min(j.pieceBytes, j.bytes - first);
        const uint64_t at = j.offset + static_cast<uint64_t>(i) * j.fileStride;
        j.pieces[i] = TransferAll(size, [&](std::size_t done, std::size_t piece) {
            return ::pread(j.descriptor, j.target + first + done, piece,
                           static_cast<off_t>(at + done));
        });
    });
    Transferred total;
    for (std::size_t i = 0; i < count; ++i) {
        total.bytes += pieces[i].bytes;
        const std::size_t expected = std::min(pieceBytes, bytes - i * pieceBytes);
        if (pieces[i].bytes < expected) {
            total.error = pieces[i].error;
            break;
        }
    }
    return total;
}

std::string SystemErrorText(int error) {
    char buffer[256] = {};
    return ErrorString(::strerror_r(error, buffer, sizeof buffer), buffer);
}

} // namespace

cRawFileHandle::~cRawFileHandle() {
    Close();
}

bool cRawFileHandle::Open(const std::string& name, Access access) {
    Close();
    if (cMemoryFilePtr memory = MemoryFiles::Find(name)) {
        if (access == Access::Truncate)
            memory->SetSize(0);
        mMemory = std::move(memory);
        mPosition = 0;
        return true;
    }
    int flags = access == Access::Read ? (O_RDONLY | O_CLOEXEC) : (O_WRONLY | O_CREAT | O_CLOEXEC);
    // The system ignores the truncation for devices and pipes, which hold no old bytes.
    if (access == Access::Truncate)
        flags |= O_TRUNC;
    int descriptor;
    do {
        descriptor = ::open(name.c_str(), flags, 0666);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        RecordSystemError(errno);
        return false;
    }
    mDescriptor = descriptor;
    mPosition = 0;
    return true;
}

bool cRawFileHandle::Close() {
    mMemory.reset();
    if (mDescriptor < 0) {
        mPosition = 0;
        return true;
    }
    // The descriptor is gone after close() whatever it answers, EINTR included; calling it
    // again could close a descriptor that another thread has been given meanwhile.
    const int result = ::close(mDescriptor);
    mDescriptor = -1;
    mPosition = 0;
    if (result != 0) {
        RecordSystemError(errno);
        return false;
    }
    return true;
}

bool cRawFileHandle::Sync() {
    if (mMemory)
        return true; // nothing to force out
    int result;
    do {
        result = ::fdatasync(mDescriptor);
    } while (result != 0 && errno == EINTR);
    // EINVAL: a special file (a pipe, a device) that keeps nothing to force out.
    if (result != 0 && errno != EINVAL) {
        RecordSystemError(errno);
        return false;
    }
    return true;
}

void cRawFileHandle::StartWriteback(uint64_t offset, uint64_t bytes) {
    if (mDescriptor >= 0)
        ::sync_file_range(mDescriptor, static_cast<off_t>(offset), static_cast<off_t>(bytes),
                          SYNC_FILE_RANGE_WRITE);
}

std::size_t cRawFileHandle::Read(void* buffer, std::size_t bytes) {
    if (mMemory) {
        const std::size_t read = mMemory->Read(mPosition, buffer, bytes);
        if (read < bytes)
            mErrorText = "Unexpected end of file";
        mPosition += read;
        return read;
    }
    auto* target = static_cast<char*>(buffer);
    const Transferred t = bytes >= kParallelRead
                              ? ReadInPieces(mDescriptor, target, bytes, mPosition,
                                             kReadPiece, kReadPiece)
                              : TransferAll(bytes, [&](std::size_t done, std::size_t piece) {
                                    return ::pread(mDescriptor, target + done, piece,
                                                   static_cast<off_t>(mPosition + done));
                                });
    if (t.error == kNothingMoved)
        mErrorText = "Unexpected end of file";
    else if (t.error != 0)
        RecordSystemError(t.error);
    mPosition += t.bytes;
    return t.bytes;
}

std::size_t cRawFileHandle::ReadSpaced(void* buffer, std::size_t pieceBytes, std::size_t count,
                                      uint64_t stride) {
    auto* target = static_cast<char*>(buffer);
    if (mMemory || count < 2 || pieceBytes * count < kReadPiece) {
        // One piece after the other, each a read of its own.
        const uint64_t start = mPosition;
        std::size_t done = 0;
        for (std::size_t i = 0; i < count; ++i) {
            mPosition = start + i * stride;
            const std::size_t read = Read(target + done, pieceBytes);
            done += read;
            if (read < pieceBytes)
                break;
        }
        return done;
    }
    const Transferred t =
        ReadInPieces(mDescriptor, target, pieceBytes * count, mPosition, pieceBytes, stride);
    if (t.error == kNothingMoved)
        mErrorText = "Unexpected end of file";
    else if (t.error != 0)
        RecordSystemError(t.error);
    const std::size_t full = t.bytes / pieceBytes, part = t.bytes % pieceBytes;
    if (part > 0)
        mPosition += full * stride + part;
    else if (full > 0)
        mPosition += (full - 1) * stride + pieceBytes;
    return t.bytes;
}

std::size_t cRawFileHandle::Write(const void* buffer, std::size_t bytes) {
    if (mMemory) {
        const std::size_t written = mMemory->Write(mPosition, buffer, bytes);
        if (written < bytes)
            mErrorText = "Out of memory for a temporary file held in memory";
        mPosition += written;
        return written;
    }
    const auto* source = static_cast<const char*>(buffer);
    const Transferred t = TransferAll(bytes, [&](std::size_t done, std::size_t piece) {
        return ::pwrite(mDescriptor, source + done, piece, static_cast<off_t>(mPosition + done));
    });
    // A regular file never answers 0 to a write of some bytes; take it as full.
    if (t.error != 0)
        RecordSystemError(t.error == kNothingMoved ? ENOSPC : t.error);
    mPosition += t.bytes;
    return t.bytes;
}

std::size_t cRawFileHandle::WriteRuns(const void* const* runs, std::size_t count,
                                      std::size_t runBytes) {
    std::size_t written = 0;
    std::size_t run = 0;
    if (!mMemory) {
        // As many runs per call as the system takes; a call that falls short leaves the rest
        // to Write, run by run, which finds and records the reason.
        iovec pieces[kRunsPerCall];
        while (run < count) {
            const std::size_t n = std::min(count - run, kRunsPerCall);
            for (std::size_t i = 0; i < n; ++i)
                pieces[i] = {const_cast<void*>(runs[run + i]), runBytes};
            const ssize_t moved =
                ::pwritev(mDescriptor, pieces, static_cast<int>(n), static_cast<off_t>(mPosition));
            if (moved < 0 && errno == EINTR)
                continue;
            const std::size_t whole = n * runBytes;
            const std::size_t done = moved > 0 ? static_cast<std::size_t>(moved) : 0;
            mPosition += done;
            written += done;
            if (done < whole) {
                const std::size_t into = done % runBytes;
                run += done / runBytes;
                const std::size_t rest =
                    Write(static_cast<const char*>(runs[run]) + into, runBytes - into);
                written += rest;
                if (rest < runBytes - into)
                    return written;
                ++run;
                continue;
            }
            run += n;
        }
        return written;
    }
    for (; run < count; ++run) {
        const std::size_t done = Write(runs[run], runBytes);
        written += done;
        if (done < runBytes)
            break;
    }
    return written;
}

bool cRawFileHandle::IsRegularFile() const {
    if (mMemory)
        return true;
    struct stat status {};
    return mDescriptor >= 0 && ::fstat(mDescriptor, &status) == 0 && S_ISREG(status.st_mode);
}

int64_t cRawFileHandle::Size() {
    if (mMemory)
        return static_cast<int64_t>(mMemory->Size());
    struct stat status {};
    if (::fstat(mDescriptor, &status) != 0) {
        RecordSystemError(errno);
        return -1;
    }
    return static_cast<int64_t>(status.st_size);
}

bool cRawFileHandle::SetSize(uint64_t bytes) {
    if (mMemory) {
        if (mMemory->SetSize(bytes))
            return true;
        mErrorText = "Out of memory for a temporary file held in memory";
        return false;
    }
    int result;
    do {
        result = ::ftruncate(mDescriptor, static_cast<off_t>(bytes));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        RecordSystemError(errno);
        return false;
    }
    return true;
}

void cRawFileHandle::RecordSystemError(int error) {
    mErrorText = SystemErrorText(error);
}

} // namespace Ovidane::Platform
