#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Ovidane::Platform {

// The contents of one file held in memory (see MemoryFiles.h): bytes in chunks of 2 MB,
// taken from a pool that keeps the chunks of deleted files for the next ones, so that a
// run after another of its size touches no fresh memory. Bytes between the old end and a
// write or size beyond it read as zeros, as in a file on disk. Safe to use from several
// threads; each call holds the file for its own transfer.
class cMemoryFile {
public:
    static constexpr std::size_t kChunkBytes = std::size_t{2} << 20;

    cMemoryFile() = default;
    ~cMemoryFile();
    cMemoryFile(const cMemoryFile&) = delete;
    cMemoryFile& operator=(const cMemoryFile&) = delete;

    // Bytes transferred: a read stops at the end; a write fails (short) only when no
    // memory is left.
    std::size_t Read(uint64_t offset, void* buffer, std::size_t bytes) const;
    std::size_t Write(uint64_t offset, const void* buffer, std::size_t bytes);
    uint64_t Size() const;
    bool SetSize(uint64_t bytes);

    // Frees pooled chunks until the pool holds at most `bytes`.
    static void KeepPooledAtMost(uint64_t bytes);
    static uint64_t PooledBytes();

private:
    // Transfers of this size and more are copied by several threads.
    static constexpr std::size_t kParallelBytes = std::size_t{4} << 20;

    // Calls copy(chunk memory, offset within the transfer, bytes) for the part of each
    // chunk that [offset, offset + bytes) covers; the chunks must exist.
    template <class Copy> void ForEachPiece(uint64_t offset, std::size_t bytes, Copy&& copy) const;
    // Chunks for `bytes`; false when memory runs out.
    bool Reserve(uint64_t bytes);
    void Zero(uint64_t from, uint64_t to);
    void Shrink(uint64_t bytes);

    mutable std::mutex mLock;
    std::vector<char*> mChunks;
    uint64_t mSize = 0;
};

using cMemoryFilePtr = std::shared_ptr<cMemoryFile>;

} // namespace Ovidane::Platform
