#include "platform/cMemoryFile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/Platform.h"

namespace Ovidane::Platform {
namespace {

// Chunks of deleted files, kept for the next ones.
struct cChunkPool {
    std::mutex lock;
    std::vector<char*> chunks;

    char* Take() {
        {
            std::lock_guard<std::mutex> hold(lock);
            if (!chunks.empty()) {
                char* chunk = chunks.back();
                chunks.pop_back();
                return chunk;
            }
        }
        auto* chunk = static_cast<char*>(
            std::aligned_alloc(cMemoryFile::kChunkBytes, cMemoryFile::kChunkBytes));
        if (chunk)
            PreferHugePages(chunk, cMemoryFile::kChunkBytes);
        return chunk;
    }
    void Give(const std::vector<char*>& given) {
        std::lock_guard<std::mutex> hold(lock);
        chunks.insert(chunks.end(), given.begin(), given.end());
    }
};

cChunkPool& Pool() {
    // Never destroyed: files that go at the end of the process still give their chunks back.
    static cChunkPool* pool = new cChunkPool;
    return *pool;
}

} // namespace

cMemoryFile::~cMemoryFile() {
    Pool().Give(mChunks);
}

template <class Copy>
void cMemoryFile::ForEachPiece(uint64_t offset, std::size_t bytes, Copy&& copy) const {
    if (bytes == 0)
        return;
    // One piece per chunk touched; a large transfer spreads its pieces over the threads.
    const uint64_t firstChunk = offset / kChunkBytes;
    const int64_t pieces =
        static_cast<int64_t>((offset + bytes - 1) / kChunkBytes - firstChunk + 1);
    auto piece = [&](int64_t i) {
        const uint64_t chunk = firstChunk + static_cast<uint64_t>(i);
        const uint64_t begin = std::max<uint64_t>(offset, chunk * kChunkBytes);
        const uint64_t end = std::min<uint64_t>(offset + bytes, (chunk + 1) * kChunkBytes);
        copy(mChunks[chunk] + begin % kChunkBytes, static_cast<std::size_t>(begin - offset),
             static_cast<std::size_t>(end - begin));
    };
    if (bytes < kParallelBytes) {
        for (int64_t i = 0; i < pieces; ++i)
            piece(i);
        return;
    }
    RunParallel(pieces, &piece,
                [](void* context, int64_t i) { (*static_cast<decltype(piece)*>(context))(i); });
}

std::size_t cMemoryFile::Read(uint64_t offset, void* buffer, std::size_t bytes) const {
    std::lock_guard<std::mutex> hold(mLock);
    if (offset >= mSize)
        return 0;
    bytes = static_cast<std::size_t>(std::min<uint64_t>(bytes, mSize - offset));
    auto* target = static_cast<char*>(buffer);
    ForEachPiece(offset, bytes, [&](const char* at, std::size_t done, std::size_t n) {
        std::memcpy(target + done, at, n);
    });
    return bytes;
}

std::size_t cMemoryFile::Write(uint64_t offset, const void* buffer, std::size_t bytes) {
    std::lock_guard<std::mutex> hold(mLock);
    if (bytes == 0)
        return 0;
    if (!Reserve(offset + bytes))
        return 0;
    // A write past the end leaves a gap that reads as zeros.
    if (offset > mSize)
        Zero(mSize, offset);
    const auto* source = static_cast<const char*>(buffer);
    ForEachPiece(offset, bytes, [&](char* at, std::size_t done, std::size_t n) {
        std::memcpy(at, source + done, n);
    });
    mSize = std::max<uint64_t>(mSize, offset + bytes);
    return bytes;
}

uint64_t cMemoryFile::Size() const {
    std::lock_guard<std::mutex> hold(mLock);
    return mSize;
}

bool cMemoryFile::SetSize(uint64_t bytes) {
    std::lock_guard<std::mutex> hold(mLock);
    if (bytes > mSize) {
        if (!Reserve(bytes))
            return false;
        Zero(mSize, bytes);
        mSize = bytes;
        return true;
    }
    Shrink(bytes);
    return true;
}

bool cMemoryFile::Reserve(uint64_t bytes) {
    while (mChunks.size() * kChunkBytes < bytes) {
        char* chunk = Pool().Take();
        if (!chunk)
            return false;
        mChunks.push_back(chunk);
    }
    return true;
}

void cMemoryFile::Zero(uint64_t from, uint64_t to) {
    for (uint64_t at = from; at < to;) {
        const std::size_t within = static_cast<std::size_t>(at % kChunkBytes);
        const std::size_t piece =
            static_cast<std::size_t>(std::min<uint64_t>(to - at, kChunkBytes - within));
        std::memset(mChunks[at / kChunkBytes] + within, 0, piece);
        at += piece;
    }
}

void cMemoryFile::Shrink(uint64_t bytes) {
    const std::size_t keep = static_cast<std::size_t>((bytes + kChunkBytes - 1) / kChunkBytes);
    if (keep < mChunks.size()) {
        Pool().Give(std::vector<char*>(mChunks.begin() + keep, mChunks.end()));
        mChunks.resize(keep);
    }
    mSize = bytes;
}

void cMemoryFile::KeepPooledAtMost(uint64_t bytes) {
    cChunkPool& pool = Pool();
    std::lock_guard<std::mutex> hold(pool.lock);
    while (!pool.chunks.empty() && pool.chunks.size() * kChunkBytes > bytes) {
        std::free(pool.chunks.back());
        pool.chunks.pop_back();
    }
}

uint64_t cMemoryFile::PooledBytes() {
    cChunkPool& pool = Pool();
    std::lock_guard<std::mutex> hold(pool.lock);
    return pool.chunks.size() * kChunkBytes;
}

} // namespace Ovidane::Platform
