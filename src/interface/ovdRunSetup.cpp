#include "interface/ovdRunSetup.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <vector>

#include "core/cFailureReason.h"
#include "core/cWorkerPool.h"
#include "math/ImageWalk.h"
#include "platform/Platform.h"
#include "platform/cRawFileHandle.h"

namespace Ovidane {
namespace {

ovdDiskSpaceQuery gDiskSpaceQuery = &Platform::FreeDiskBytes;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// A conversion's codes alone can't tell a short input from a full temporary disk; its
// reason names the file and what the system said.
int ConversionFailed(int code, const std::string& reason, int systemError) {
    cFailureReason::Record(systemError ? reason + " (" + std::strerror(systemError) + ")" : reason);
    return code;
}

constexpr std::size_t kBatchBytes = std::size_t{4} << 20;
constexpr std::size_t kRun = std::size_t{1} << 16;

std::string FloatCopyNotWritten(const std::string& output) {
    return "the float copy of the input could not be written in the temporary directory, " + output;
}

} // namespace

template <class Source>
int ovdConvertToFloatFile(const std::string& input, const std::string& output, int width,
                          int height, int depth) {
    try {
        const std::size_t sliceElements = std::size_t(std::max(width, 0)) * std::max(height, 0);
        // Slices go over in batches of about kBatchBytes of floats: few large transfers, and
        // a copy large enough to spread over the threads.
        const std::size_t sliceBytes = std::max<std::size_t>(sliceElements * sizeof(float), 1);
        const int batch = int(
            std::clamp<std::size_t>(kBatchBytes / sliceBytes, 1, std::size_t(std::max(depth, 1))));
        // Left unwritten until the input arrives: zeroing them would be a pass of its own.
        std::unique_ptr<Source[]> source;
        std::unique_ptr<float[]> target;
        try {
            source.reset(new Source[sliceElements * batch]);
            target.reset(new float[sliceElements * batch]);
        } catch (const std::bad_alloc&) {
            return 4;
        }
        File in(std::fopen(input.c_str(), "rb"));
        if (!in)
            return ConversionFailed(7, input + ": cannot be read", errno);
        // Through a raw handle: the copy may be a memory file.
        Platform::cRawFileHandle out;
        const auto notWritten = [&] {
            return ConversionFailed(8, FloatCopyNotWritten(output) + " (" + out.ErrorText() + ")",
                                    0);
        };
        if (!out.Open(output, Platform::cRawFileHandle::Access::Truncate))
            return notWritten();
        for (int z = 0; z < depth; z += batch) {
            const std::size_t elements = sliceElements * std::size_t(std::min(batch, depth - z));
            const std::size_t got = std::fread(source.get(), sizeof(Source), elements, in.get());
            if (got != elements)
                return ConversionFailed(7,
                                        input + ": shorter than its stated size, at slice " +
                                            std::to_string(z + got / sliceElements + 1) + " of " +
                                            std::to_string(depth),
                                        0);
            // By value, no scaling, in runs spread over the threads.
            const auto runs = int64_t((elements + kRun - 1) / kRun);
            cWorkerPool::ForEach(runs, ImageWalk::ThreadsFor(elements), [&](int64_t r, int) {
                const std::size_t first = std::size_t(r) * kRun;
                const std::size_t end = std::min(elements, first + kRun);
                std::copy(source.get() + first, source.get() + end, target.get() + first);
            });
            const std::size_t bytes = elements * sizeof(float);
            if (out.Write(target.get(), bytes) != bytes)
                return notWritten();
        }
        if (!out.Close())
            return notWritten();
        return 0;
    } catch (...) {
        return 1;
    }
}

int ovdCheckStackFile(const std::string& input, int width, int height, int depth,
                      std::size_t pixelBytes) {
    File in(std::fopen(input.c_str(), "rb"));
    if (!in)
        return ConversionFailed(7, input + ": cannot be read", errno);
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(input, error);
    if (error)
        return ConversionFailed(7, input + ": cannot be read (" + error.message() + ")", 0);
    const uintmax_t sliceBytes =
        uintmax_t(std::max(width, 0)) * uintmax_t(std::max(height, 0)) * pixelBytes;
    const uintmax_t slices = sliceBytes > 0 ? size / sliceBytes : uintmax_t(depth);
    if (slices < uintmax_t(std::max(depth, 0)))
        return ConversionFailed(7,
                                input + ": shorter than its stated size, at slice " +
                                    std::to_string(slices + 1) + " of " + std::to_string(depth),
                                0);
    return 0;
}

bool ovdScanFloatFile(const std::string& path, uint64_t count, ovdFloatFileValues& values) {
    values = ovdFloatFileValues{};
    File in(std::fopen(path.c_str(), "rb"));
    if (!in)
        return false;
    std::vector<float> chunk(std::size_t(1) << 16);
    while (count > 0) {
        const std::size_t wanted = std::size_t(std::min<uint64_t>(count, chunk.size()));
        const std::size_t got = std::fread(chunk.data(), sizeof(float), wanted, in.get());
        for (std::size_t i = 0; i < got; ++i) {
            if (!std::isfinite(chunk[i]))
                values.finite = false;
            else
                values.magnitudeSum += std::fabs(double(chunk[i]));
        }
        if (got < wanted)
            break;
        count -= got;
    }
    return true;
}

template int ovdConvertToFloatFile<uint8_t>(const std::string&, const std::string&, int, int, int);
template int ovdConvertToFloatFile<uint16_t>(const std::string&, const std::string&, int, int, int);

void ovdSetDiskSpaceQuery(ovdDiskSpaceQuery query) {
    gDiskSpaceQuery = query ? query : &Platform::FreeDiskBytes;
}

bool ovdCheckDiskSpace(uint32_t neededKilobytes, const std::string& path) {
    // Ask about the directory itself: on this platform a directory may be a mount point of
    // its own, so its parent can sit on another file system. A path that is no directory
    // yet is asked about through its parent.
    std::string probe = path;
    std::error_code error;
    if (!std::filesystem::is_directory(probe, error)) {
        const std::size_t cut = probe.find_last_of('/');
        if (cut != std::string::npos && cut > 0)
            probe.erase(cut + 1);
    }
    const int64_t bytes = gDiskSpaceQuery(probe);
    if (bytes < 0)
        return false;
    // Kilobytes saturate instead of wrapping, so that a disk with more than 2 TB free
    // is not mistaken for a full one.
    const int64_t kilobytes = std::min<int64_t>(bytes >> 10, INT32_MAX);
    return kilobytes >= static_cast<int64_t>(neededKilobytes);
}

} // namespace Ovidane
