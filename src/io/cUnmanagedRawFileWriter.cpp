#include "io/cUnmanagedRawFileWriter.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "core/cException.h"

namespace Ovidane {

cUnmanagedRawFileWriter::cUnmanagedRawFileWriter(std::string fileName)
    : cRasterFileWriter(std::move(fileName)) {}

cUnmanagedRawFileWriter::~cUnmanagedRawFileWriter() {
    Close();
}

bool cUnmanagedRawFileWriter::Open() {
    Close(); // a file still open is finished properly first
    return mFile.Open(GetFileName(), Platform::cRawFileHandle::Access::Write);
}

bool cUnmanagedRawFileWriter::OpenToReplace() {
    Close();
    mReplaces = mFile.Open(GetFileName(), Platform::cRawFileHandle::Access::Write);
    return mReplaces;
}

bool cUnmanagedRawFileWriter::Close() {
    // A file being replaced that ends here, not in CloseDurably, was abandoned half written.
    if (mReplaces && mFile.IsOpen())
        CutAt(0);
    mReplaces = false;
    ReleaseSliceBuffer();
    return mFile.Close();
}

bool cUnmanagedRawFileWriter::CloseDurably() {
    bool cut = true;
    if (mReplaces && mFile.IsOpen())
        cut = CutAt(GetLastError().empty() ? mFile.Position() : 0);
    mReplaces = false;
    const bool synced = !mFile.IsOpen() || mFile.Sync();
    const bool closed = Close();
    return cut && synced && closed;
}

bool cUnmanagedRawFileWriter::CutAt(uint64_t end) {
    const int64_t size = mFile.Size();
    return size <= static_cast<int64_t>(end) || mFile.SetSize(end);
}

bool cUnmanagedRawFileWriter::Write(const cCountedPtr<cOvdImage<float>>& image) {
    return WriteStack(image);
}
bool cUnmanagedRawFileWriter::Write(const cCountedPtr<cOvdImage<uint16_t>>& image) {
    return WriteStack(image);
}
bool cUnmanagedRawFileWriter::Write(const cCountedPtr<cOvdImage<uint8_t>>& image) {
    return WriteStack(image);
}

bool cUnmanagedRawFileWriter::WriteRegion(const cCountedPtr<cOvdImage<float>>& image, uint32_t x0,
                                          uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1,
                                          uint32_t z1) {
    return WriteBox(image, x0, y0, z0, x1, y1, z1);
}
bool cUnmanagedRawFileWriter::WriteRegion(const cCountedPtr<cOvdImage<uint16_t>>& image,
                                          uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1,
                                          uint32_t y1, uint32_t z1) {
    return WriteBox(image, x0, y0, z0, x1, y1, z1);
}
bool cUnmanagedRawFileWriter::WriteRegion(const cCountedPtr<cOvdImage<uint8_t>>& image, uint32_t x0,
                                          uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1,
                                          uint32_t z1) {
    return WriteBox(image, x0, y0, z0, x1, y1, z1);
}

bool cUnmanagedRawFileWriter::WriteBand(const cCountedPtr<cOvdImage<float>>& image, uint32_t rows,
                                        uint32_t stackRow, uint32_t stackRows,
                                        const std::function<void(uint32_t slice)>& beforeSlice) {
    if (!image)
        return false;
    const cOvdImage<float>& source = *image;
    if (rows > source.GetSizeY() || uint64_t{stackRow} + rows > stackRows)
        throw cException("cUnmanagedRawFileWriter", "Roi out of bounds in WriteBand",
                         OVD_ERR_PARAMETER);
    const uint64_t rowBytes = uint64_t{source.GetSizeX()} * sizeof(float);
    const uint64_t reached = mFile.Position();
    for (uint32_t z = 0; z < source.GetSizeZ(); ++z) {
        if (beforeSlice)
            beforeSlice(z);
        mFile.Seek((uint64_t{z} * stackRows + stackRow) * rowBytes);
        WriteBytes(source.GetSlicePointer(z), rowBytes * rows);
    }
    mFile.Seek(std::max(reached, mFile.Position()));
    return true;
}

template <class T> void cUnmanagedRawFileWriter::TakeSizes(const cOvdImage<T>& image) {
    SetWidth(image.GetSizeX());
    SetHeight(image.GetSizeY());
    SetDepth(image.GetSizeZ());
}

template <class T>
bool cUnmanagedRawFileWriter::WriteStack(const cCountedPtr<cOvdImage<T>>& image) {
    if (!image)
        return false;
    const cOvdImage<T>& source = *image;
    TakeSizes(source);
    if (source.IsContiguous3D()) {
        WriteBytes(source.GetSlicePointer(0), source.GetVoxelCount() * sizeof(T));
        return true;
    }
    const uint64_t sliceBytes = uint64_t{source.GetSizeX()} * source.GetSizeY() * sizeof(T);
    for (uint32_t z = 0; z < source.GetSizeZ(); ++z)
        WriteBytes(source.GetSlicePointer(z), sliceBytes);
    return true;
}

template <class T>
bool cUnmanagedRawFileWriter::WriteBox(const cCountedPtr<cOvdImage<T>>& image, uint32_t x0,
                                       uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1,
                                       uint32_t z1) {
    if (!image)
        return false;
    const cOvdImage<T>& source = *image;
    TakeSizes(source);
    if (x1 < x0 || y1 < y0 || z1 < z0 || !source.IsRoiInside(cImageBox{x0, y0, z0, x1, y1, z1}))
        throw cException("cUnmanagedRawFileWriter", "Roi out of bounds in WriteRegion",
                         OVD_ERR_PARAMETER);
    const uint32_t columns = x1 - x0 + 1;
    const uint32_t rows = y1 - y0 + 1;
    const uint32_t slices = z1 - z0 + 1;
    const std::size_t rowBytes = std::size_t{columns} * sizeof(T);
    const std::size_t sliceBytes = rowBytes * rows;

    // A box as wide as the image has its rows side by side in the image's memory.
    if (columns == source.GetSizeX()) {
        if (rows == source.GetSizeY() && source.IsContiguous3D()) {
            WriteBytes(source.GetSlicePointer(z0), uint64_t{sliceBytes} * slices);
            return true;
        }
        for (uint32_t z = z0; z <= z1; ++z)
            WriteBytes(source.GetLinePointer(y0, z), sliceBytes);
        return true;
    }
    if (!mReplaces) {
        // The rows go out where they lie, gathered by the system, a slice at a time so that
        // a slice that falls short leaves the next one its own place.
        std::vector<const void*> runs(rows);
        for (uint32_t z = z0; z <= z1; ++z) {
            for (uint32_t r = 0; r < rows; ++r)
                runs[r] = source.GetLinePointer(y0 + r, z) + x0;
            const uint64_t start = mFile.Position();
            if (mFile.WriteRuns(runs.data(), rows, rowBytes) < sliceBytes)
                NoteShortTransfer(mFile.ErrorText());
            mFile.Seek(start + sliceBytes);
        }
        return true;
    }
    unsigned char* buffer = SliceBuffer(sliceBytes);
    for (uint32_t z = z0; z <= z1; ++z) {
        for (uint32_t r = 0; r < rows; ++r)
            std::memcpy(buffer + r * rowBytes, source.GetLinePointer(y0 + r, z) + x0, rowBytes);
        WriteBytes(buffer, sliceBytes);
    }
    return true;
}

void cUnmanagedRawFileWriter::WriteBytes(const void* source, uint64_t bytes) {
    const uint64_t start = mFile.Position();
    // A file the host keeps goes to the disk while the rest is still being written: its
    // pieces are handed to the disk one by one, and the sync at the end waits for less.
    const uint64_t piece = mReplaces ? kWritebackBytes : bytes;
    const auto* from = static_cast<const unsigned char*>(source);
    uint64_t done = 0;
    do {
        const uint64_t n = std::min(piece, bytes - done);
        mFile.Seek(start + done);
        if (mFile.Write(from + done, n) < n) {
            NoteShortTransfer(mFile.ErrorText());
            break;
        }
        if (mReplaces && n > 0)
            mFile.StartWriteback(start + done, n);
        done += n;
    } while (done < bytes);
    // What follows keeps its own place in the file even when this part fell short.
    mFile.Seek(start + bytes);
}

} // namespace Ovidane
