#include "io/cUnmanagedRawFileReader.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "core/cException.h"
#include "core/cWorkerPool.h"
#include "core/cWorkerThreads.h"

namespace Ovidane {

namespace {

[[noreturn]] void RefuseRegion(const char* operation) {
    throw cException("cUnmanagedRawFileReader", std::string("Roi out of bounds in ") + operation,
                     OVD_ERR_PARAMETER);
}

// Regions are read this many bytes of whole slices at a time, at least one slice.
constexpr uint64_t kBatchBytes = uint64_t{4} << 20;

} // namespace

cUnmanagedRawFileReader::cUnmanagedRawFileReader(std::string fileName)
    : cRasterFileReader(std::move(fileName)) {}

cUnmanagedRawFileReader::cUnmanagedRawFileReader(std::string fileName, uint32_t width,
                                                 uint32_t height, uint32_t depth)
    : cRasterFileReader(std::move(fileName)) {
    SetWidth(width);
    SetHeight(height);
    SetDepth(depth);
}

cUnmanagedRawFileReader::~cUnmanagedRawFileReader() {
    Close();
}

bool cUnmanagedRawFileReader::Open() {
    return mFile.Open(GetFileName(), Platform::cRawFileHandle::Access::Read) &&
           mFile.Position() == 0;
}

bool cUnmanagedRawFileReader::Close() {
    mFile.Close();
    ReleaseSliceBuffer();
    return true;
}

bool cUnmanagedRawFileReader::Read(const cCountedPtr<cOvdImage<float>>& image) {
    return ReadStack(image);
}
bool cUnmanagedRawFileReader::Read(const cCountedPtr<cOvdImage<uint16_t>>& image) {
    return ReadStack(image);
}
bool cUnmanagedRawFileReader::Read(const cCountedPtr<cOvdImage<uint8_t>>& image) {
    return ReadStack(image);
}

template <class T> bool cUnmanagedRawFileReader::ReadStack(const cCountedPtr<cOvdImage<T>>& image) {
    if (!image)
        return false;
    const cOvdImage<T>& target = *image;
    SetWidth(target.GetSizeX());
    SetHeight(target.GetSizeY());
    SetDepth(target.GetSizeZ());
    if (target.IsContiguous3D())
        return ReadBytes(target.GetSlicePointer(0), target.GetVoxelCount() * sizeof(T));
    const uint64_t sliceBytes = uint64_t{target.GetSizeX()} * target.GetSizeY() * sizeof(T);
    for (uint32_t z = 0; z < target.GetSizeZ(); ++z)
        if (!ReadBytes(target.GetSlicePointer(z), sliceBytes))
            return false;
    return true;
}

bool cUnmanagedRawFileReader::ReadRegion(const cCountedPtr<cOvdImage<float>>& image, uint32_t x0,
                                         uint32_t y0, uint32_t z0, uint32_t x1, uint32_t /*y1*/,
                                         uint32_t /*z1*/, uint32_t dx0, uint32_t dy0, uint32_t dz0,
                                         uint32_t /*dx1*/, uint32_t dy1, uint32_t dz1) {
    if (!image)
        return false;
    const cOvdImage<float>& target = *image;
    if (x1 < x0 || dy1 < dy0 || dz1 < dz0)
        RefuseRegion("ReadRegion");
    const uint32_t columns = x1 - x0 + 1;
    const uint32_t rows = dy1 - dy0 + 1;
    if (x1 >= GetWidth() || uint64_t{y0} + rows > GetHeight())
        RefuseRegion("ReadRegion");
    if (uint64_t{dx0} + columns > target.GetSizeX() || dy1 >= target.GetSizeY() ||
        dz1 >= target.GetSizeZ())
        RefuseRegion("ReadRegion");

    const std::size_t width = GetWidth();
    const uint64_t sliceBytes = uint64_t{width} * GetHeight() * sizeof(float);
    // Whole file slices, as many at a time as about kBatchBytes hold: a few large reads, and
    // rows enough to spread their copies over the threads.
    const uint32_t slices = dz1 - dz0 + 1;
    const auto batch = static_cast<uint32_t>(
        std::clamp<uint64_t>(kBatchBytes / std::max<uint64_t>(sliceBytes, 1), 1, slices));
    unsigned char* buffer = SliceBuffer(batch * sliceBytes);
    uint64_t position = ByteOffset(0, 0, z0, sizeof(float));
    for (uint32_t done = 0; done < slices; done += batch) {
        const uint32_t count = std::min(batch, slices - done);
        mFile.Seek(position);
        const std::size_t arrived = mFile.Read(buffer, count * sliceBytes);
        if (arrived < count * sliceBytes)
            NoteShortTransfer(mFile.ErrorText());
        // Only pixels that arrived whole are taken; the rest of the image keeps its values.
        const std::size_t available = arrived / sizeof(float);
        const std::size_t sliceValues = sliceBytes / sizeof(float);
        cWorkerPool::ForEach(int64_t{count} * rows,
                             count * sliceBytes >= kBatchBytes / 64 ? cWorkerThreads::Count() : 1,
                             [&](int64_t line, int) {
                                 const auto k = static_cast<uint32_t>(line / rows);
                                 const auto r = static_cast<uint32_t>(line % rows);
                                 const std::size_t first =
                                     k * sliceValues + (std::size_t{y0} + r) * width + x0;
                                 if (first >= available)
                                     return;
                                 const std::size_t n =
                                     std::min<std::size_t>(columns, available - first);
                                 std::memcpy(target.GetLinePointer(dy0 + r, dz0 + done + k) + dx0,
                                             buffer + first * sizeof(float), n * sizeof(float));
                             });
        // The next slices are read where they lie, whatever became of these.
        position += count * sliceBytes;
    }
    mFile.Seek(position);
    return true;
}

bool cUnmanagedRawFileReader::ReadRegion8(const cCountedPtr<cOvdImage<uint8_t>>& image, uint32_t x0,
                                          uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1,
                                          uint32_t z1) {
    return ReadBox("ReadRegion8", image, x0, y0, z0, x1, y1, z1);
}

bool cUnmanagedRawFileReader::ReadRegion16(const cCountedPtr<cOvdImage<uint16_t>>& image,
                                           uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1,
                                           uint32_t y1, uint32_t z1) {
    return ReadBox("ReadRegion16", image, x0, y0, z0, x1, y1, z1);
}

bool cUnmanagedRawFileReader::ReadRegionFloat(const cCountedPtr<cOvdImage<float>>& image,
                                              uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1,
                                              uint32_t y1, uint32_t z1) {
    switch (mPixelBytes) {
    case 1: return ReadConverted<uint8_t>(image, x0, y0, z0, x1, y1, z1);
    case 2: return ReadConverted<uint16_t>(image, x0, y0, z0, x1, y1, z1);
    default: return ReadBox("ReadRegionFloat", image, x0, y0, z0, x1, y1, z1);
    }
}

void cUnmanagedRawFileReader::SetPixelBytes(uint32_t bytes) {
    if (bytes != 1 && bytes != 2 && bytes != sizeof(float))
        throw cException("cUnmanagedRawFileReader",
                         "Unknown pixel size " + std::to_string(bytes) + " in SetPixelBytes",
                         OVD_ERR_PARAMETER);
    mPixelBytes = bytes;
}

cImageDimensions cUnmanagedRawFileReader::CheckedBox(const char* operation,
                                                    const cImageDimensions& image, uint32_t x0,
                                                    uint32_t y0, uint32_t z0, uint32_t x1,
                                                    uint32_t y1, uint32_t z1) const {
    if (x1 < x0 || y1 < y0 || z1 < z0 || x1 >= GetWidth() || y1 >= GetHeight())
        RefuseRegion(operation);
    const cImageDimensions box{x1 - x0 + 1, y1 - y0 + 1, z1 - z0 + 1};
    if (box.x > image.x || box.y > image.y || box.z > image.z)
        RefuseRegion(operation);
    return box;
}

// The rows y0..y1 of a slice lie together in the file: they come across the file's whole
// width, of as many slices at a time as about kBatchBytes hold (read on the threads
// together), and the box's part of each row is converted into the image on the threads.
template <class Source>
bool cUnmanagedRawFileReader::ReadConverted(const cCountedPtr<cOvdImage<float>>& image,
                                            uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1,
                                            uint32_t y1, uint32_t z1) {
    if (!image)
        return false;
    const cOvdImage<float>& target = *image;
    const auto [columns, rows, slices] =
        CheckedBox("ReadRegionFloat", target.GetDimensions(), x0, y0, z0, x1, y1, z1);

    const uint64_t rowBytes = uint64_t{GetWidth()} * sizeof(Source);
    const uint64_t bandBytes = rowBytes * rows;
    const uint64_t sliceBytes = rowBytes * GetHeight();
    const uint32_t batch =
        static_cast<uint32_t>(std::clamp<uint64_t>(kBatchBytes / bandBytes, 1, slices));
    unsigned char* buffer = SliceBuffer(batch * bandBytes);
    for (uint32_t done = 0; done < slices; done += batch) {
        const uint32_t count = std::min(batch, slices - done);
        mFile.Seek(ByteOffset(0, y0, z0 + done, sizeof(Source)));
        // The bands of `count` slices: one read where they join (whole slices), else side by
        // side in the buffer, read on the threads together.
        const bool joined = bandBytes == sliceBytes;
        if (joined ? !ReadBytes(buffer, count * bandBytes)
                   : !ReadBandsSpaced(buffer, bandBytes, count, sliceBytes))
            return false;
        cWorkerPool::ForEach(int64_t{count} * rows,
                             count * bandBytes >= kBatchBytes / 64 ? cWorkerThreads::Count() : 1,
                             [&](int64_t line, int) {
                                 const auto k = static_cast<uint32_t>(line / rows);
                                 const auto r = static_cast<uint32_t>(line % rows);
                                 // Rows start on whole pixels of the buffer, which is
                                 // aligned for any pixel type.
                                 const auto* row = reinterpret_cast<const Source*>(
                                                       buffer + uint64_t(line) * rowBytes) +
                                                   x0;
                                 std::copy(row, row + columns, target.GetLinePointer(r, done + k));
                             });
    }
    // Where a walk that reads a row and steps over the rest of the file's line ends.
    mFile.Seek(ByteOffset(x0, y1 + 1, z1, sizeof(Source)));
    return true;
}

template <class T>
bool cUnmanagedRawFileReader::ReadBox(const char* operation, const cCountedPtr<cOvdImage<T>>& image,
                                      uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1,
                                      uint32_t y1, uint32_t z1) {
    if (!image)
        return false;
    const cOvdImage<T>& target = *image;
    const auto [columns, rows, slices] =
        CheckedBox(operation, target.GetDimensions(), x0, y0, z0, x1, y1, z1);

    // Rows of the box follow each other without a gap in the file when the box is as wide
    // as the file, and in the image when it is as wide as the image.
    const bool rowsJoin = columns == GetWidth() && columns == target.GetSizeX();
    const bool slicesJoin =
        rowsJoin && rows == GetHeight() && rows == target.GetSizeY() && target.IsContiguous3D();
    const uint64_t rowBytes = uint64_t{columns} * sizeof(T);
    if (slicesJoin) {
        mFile.Seek(ByteOffset(0, 0, z0, sizeof(T)));
        return ReadBytes(target.GetSlicePointer(0), rowBytes * rows * slices);
    }
    // An image as high as the box holds the box's slices one after the other: their bands
    // come in one spaced read, spread over the threads.
    if (rowsJoin && rows == target.GetSizeY() && target.IsContiguous3D()) {
        mFile.Seek(ByteOffset(0, y0, z0, sizeof(T)));
        const uint64_t fileSliceBytes = uint64_t{GetWidth()} * GetHeight() * sizeof(T);
        if (!ReadBandsSpaced(target.GetSlicePointer(0), rowBytes * rows, slices, fileSliceBytes))
            return false;
        mFile.Seek(ByteOffset(x0, y1 + 1, z1, sizeof(T)));
        return true;
    }
    for (uint32_t s = 0; s < slices; ++s) {
        if (rowsJoin) {
            mFile.Seek(ByteOffset(0, y0, z0 + s, sizeof(T)));
            if (!ReadBytes(target.GetLinePointer(0, s), rowBytes * rows))
                return false;
            continue;
        }
        for (uint32_t r = 0; r < rows; ++r) {
            mFile.Seek(ByteOffset(x0, y0 + r, z0 + s, sizeof(T)));
            if (!ReadBytes(target.GetLinePointer(r, s), rowBytes))
                return false;
        }
    }
    // Where a walk that reads a row and steps over the rest of the file's line ends.
    mFile.Seek(ByteOffset(x0, y1 + 1, z1, sizeof(T)));
    return true;
}

bool cUnmanagedRawFileReader::ReadBandsSpaced(void* target, uint64_t bandBytes, uint32_t count,
                                              uint64_t stride) {
    if (mFile.ReadSpaced(target, bandBytes, count, stride) == bandBytes * count)
        return true;
    NoteShortTransfer(mFile.ErrorText());
    return false;
}

bool cUnmanagedRawFileReader::ReadBytes(void* target, uint64_t bytes) {
    if (mFile.Read(target, bytes) == bytes)
        return true;
    NoteShortTransfer(mFile.ErrorText());
    return false;
}

} // namespace Ovidane
