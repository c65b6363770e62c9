#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "core/cCountedPtr.h"
#include "image/cOvdImage.h"
#include "io/cRasterFileWriter.h"
#include "platform/cRawFileHandle.h"

namespace Ovidane {

// Writes images as raw stacks (pixels only, x fastest, native byte order) through the
// system's unbuffered file handle. Every write appends at the current position, so a
// stack can be written slice by slice with one call per slice. A contiguous image or box
// goes out in one write.
//
// A short write (a full disk, a file that isn't open) is noted in GetLastError() and the
// operation goes on with the next slice at that slice's own place in the file; the answer
// stays true. A caller that must know looks at GetLastError() or the result of Close().
class cUnmanagedRawFileWriter : public cRasterFileWriter {
public:
    explicit cUnmanagedRawFileWriter(std::string fileName);
    // Closes through Close().
    ~cUnmanagedRawFileWriter() override;

    // Opens the file for writing at position 0, creating it when missing. An existing file
    // is not truncated: bytes behind those written keep their values. False when the
    // system refuses the file.
    bool Open() override;
    // Opens the file for writing at position 0, to be replaced by what is written now: when
    // the writer closes durably the file ends where the writes end. An existing file is
    // written over in place, its cached pages and disk blocks serving again, where emptying
    // it first gave them back only to take new ones (5 ms for a 16 MB stack, a tenth of a
    // whole run of it). A writer closed any other way (a run that failed or was cancelled)
    // or whose write fell short leaves the file empty, never old bytes mixed with new. The
    // name is never unlinked and made anew, so whatever the caller named (a symbolic link, a
    // file with other links, a device) stays what it was. False when the system refuses
    // the file.
    bool OpenToReplace();
    // Closes without forcing the data to the disk: the files a run passes between its stages
    // are read back at once and deleted, and need no durability. True when the system closed
    // the file or nothing was open.
    bool Close() override;
    // Forces the data to the disk and closes, for a file the host keeps; a file opened to
    // be replaced is cut where the writes ended first. True when all of it succeeds or
    // nothing was open.
    bool CloseDurably();

    // The system's handle, -1 while no file is open.
    int GetHandle() const { return mFile.Descriptor(); }
    // Byte position of the next write.
    uint64_t GetPosition() const { return mFile.Position(); }
    // Whether the file can be read back and written over (see cRawFileHandle::IsRegularFile).
    bool IsRegularFile() const { return mFile.IsRegularFile(); }
    // The next write goes to the start of the file again, over what is there.
    void Rewind() { mFile.Seek(0); }

    // Appends the whole image; the sizes are set from it. One write for a contiguous
    // image, one per slice otherwise. False only for a null image.
    bool Write(const cCountedPtr<cOvdImage<float>>& image);
    bool Write(const cCountedPtr<cOvdImage<uint16_t>>& image);
    bool Write(const cCountedPtr<cOvdImage<uint8_t>>& image);

    // Appends the image box x0..x1, y0..y1, z0..z1 (inclusive), densely packed: a stack of
    // the box's size. The sizes are set from the image. A box as wide as the image goes
    // out straight from the image, one write per slice (one for all of it when the image
    // is contiguous and the box spans whole slices); a narrower box is gathered slice by
    // slice into a buffer kept until Close(). False only for a null image; an inverted box
    // or one outside the image raises a cException with code 2 before anything is written.
    bool WriteRegion(const cCountedPtr<cOvdImage<float>>& image, uint32_t x0, uint32_t y0,
                     uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);
    bool WriteRegion(const cCountedPtr<cOvdImage<uint16_t>>& image, uint32_t x0, uint32_t y0,
                     uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);
    bool WriteRegion(const cCountedPtr<cOvdImage<uint8_t>>& image, uint32_t x0, uint32_t y0,
                     uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);

    // Writes the first `rows` rows of every slice of the image, which is as wide as the
    // stack in the file, to rows `stackRow` onwards of the same slices of the file's stack,
    // `stackRows` rows high: one write per slice, in any order of bands. The position then
    // stands behind the last row written, or where it stood if that is further, so that a
    // file being replaced keeps every band. False only for a null image; rows beyond the
    // image or the stack raise a cException with code 2 before anything is written.
    // `beforeSlice`, when given, is called with each slice's index just before its rows are
    // written: what it reads of them is then still in the cache for the write.
    bool WriteBand(const cCountedPtr<cOvdImage<float>>& image, uint32_t rows, uint32_t stackRow,
                   uint32_t stackRows,
                   const std::function<void(uint32_t slice)>& beforeSlice = nullptr);

private:
    template <class T> bool WriteStack(const cCountedPtr<cOvdImage<T>>& image);
    template <class T>
    bool WriteBox(const cCountedPtr<cOvdImage<T>>& image, uint32_t x0, uint32_t y0, uint32_t z0,
                  uint32_t x1, uint32_t y1, uint32_t z1);
    template <class T> void TakeSizes(const cOvdImage<T>& image);
    // One transfer at the position, which then moves on by `bytes` whatever was written.
    void WriteBytes(const void* source, uint64_t bytes);
    // Cuts a file being replaced at `end`; one that is not longer (a device, a pipe, a stack
    // as long as the old one) is left as it is.
    bool CutAt(uint64_t end);

    // Pieces of a file the host keeps, each handed to the disk once written (OpenToReplace).
    static constexpr uint64_t kWritebackBytes = uint64_t{4} << 20;

    Platform::cRawFileHandle mFile;
    bool mReplaces = false;
};

} // namespace Ovidane
