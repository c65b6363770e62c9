#pragma once
// Unbuffered access to one file through the system's low-level handle. No stream buffer
// stands between the caller's memory and the kernel: a slice of a stack goes to or from
// the disk in one transfer of exactly its bytes, straight from the image's memory.
// Positions and sizes are 64-bit everywhere, so stacks beyond 4 GiB need nothing special.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/cMemoryFile.h"

namespace Ovidane::Platform {

class cRawFileHandle {
public:
    enum class Access {
        Read,  // an existing file, read only, others may open it as well
        Write, // write only; created when missing, never truncated
        // Write only; created when missing, otherwise emptied through its name. The name is
        // never unlinked and made anew: a symbolic link keeps pointing at the file it names,
        // other hard links see the new contents, a device stays a device.
        Truncate,
    };

    cRawFileHandle() = default;
    // Closes an open file without forcing its data to the disk.
    ~cRawFileHandle();
    cRawFileHandle(const cRawFileHandle&) = delete;
    cRawFileHandle& operator=(const cRawFileHandle&) = delete;

    // Opens `name`: the memory file of that name if there is one (MemoryFiles.h), else the
    // file on disk; a file that is open already is closed first. The position is 0. False
    // when the system refuses the file; ErrorText() then says why.
    bool Open(const std::string& name, Access access);
    // True when no file was open or the system closed it. The handle is closed afterwards
    // in either case.
    bool Close();
    // Forces what was written to the storage device.
    bool Sync();
    // Starts writing [offset, offset + bytes) to the storage device without waiting for it,
    // so that a Sync after it finds less left to do. Does nothing for a memory file, nor where
    // the system can't; failures show at the Sync.
    void StartWriteback(uint64_t offset, uint64_t bytes);

    bool IsOpen() const { return mDescriptor >= 0 || mMemory; }
    // Whether the open file is a plain file (or a memory file), one that can be read back
    // and written anywhere; false for a device, a pipe or a socket, and when none is open.
    bool IsRegularFile() const;
    // The system's handle, -1 while no file or a memory file is open.
    int Descriptor() const { return mDescriptor; }

    // The position is this object's own: every transfer names its offset to the system,
    // so moving the position costs no call and nothing else can disturb it.
    uint64_t Position() const { return mPosition; }
    void Seek(uint64_t position) { mPosition = position; }

    // Transfer `bytes` at the position and move it on by the bytes transferred. The
    // answer is that count; less than asked for means end of file (reading) or a
    // failure, and ErrorText() then holds the system's text for it. Transfers larger
    // than the kernel moves at once are split; an interrupted call is repeated. A large read
    // from disk is split into pieces read by several threads (RunParallel); the count is
    // then how far the file was read without a gap.
    std::size_t Read(void* buffer, std::size_t bytes);
    // Read for `count` pieces of `pieceBytes` that lie `stride` bytes apart in the file from
    // the position on (the rows of a box in successive slices), side by side in `buffer`:
    // read by several threads at once when together they take a megabyte or more. The answer
    // is how far `buffer` was filled without a gap; the position moves on to behind the last
    // byte read.
    std::size_t ReadSpaced(void* buffer, std::size_t pieceBytes, std::size_t count,
                           uint64_t stride);
    std::size_t Write(const void* buffer, std::size_t bytes);
    // Write for `count` runs of `runBytes` bytes lying apart in memory (the rows of a box),
    // one after the other in the file, gathered by the system: a few calls for many runs,
    // and no copy into a buffer first.
    std::size_t WriteRuns(const void* const* runs, std::size_t count, std::size_t runBytes);

    // Length of the open file in bytes; -1 when the system can't tell.
    int64_t Size();
    // Sets the file's length: a shorter file loses its tail, a longer one reads as zeros
    // in the new part and takes no disk space for it where the file system allows.
    bool SetSize(uint64_t bytes);

    // Text of the latest failure, empty before the first.
    const std::string& ErrorText() const { return mErrorText; }

private:
    void RecordSystemError(int error);

    int mDescriptor = -1;
    cMemoryFilePtr mMemory;
    uint64_t mPosition = 0;
    std::string mErrorText;
};

} // namespace Ovidane::Platform
