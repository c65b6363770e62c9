#pragma once
#include <cstddef>
#include <cstdint>
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
    // Opens the file for writing at position 0, emptied: a stack written now is the whole
    // file. An existing file is truncated through its name, never deleted and made anew, so
    // whatever the caller named (a symbolic link, a file with other links, a device) stays
    // what it was. False when the system refuses the file.
    bool OpenEmptied();
    // Closes without forcing the data to the disk: the files a run passes between its stages
    // are read back at once and deleted, and need no durability. True when the system closed
    // the file or nothing was open.
    bool Close() override;
    // Forces the data to the disk and closes, for a file the host keeps. True when both
    // succeed or nothing was open.
    bool CloseDurably();

    // The system's handle, -1 while no file is open.
    int GetHandle() const { return mFile.Descriptor(); }
    // Byte position of the next write.
    uint64_t GetPosition() const { return mFile.Position(); }

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

private:
    template <class T> bool WriteStack(const cCountedPtr<cOvdImage<T>>& image);
    template <class T>
    bool WriteBox(const cCountedPtr<cOvdImage<T>>& image, uint32_t x0, uint32_t y0, uint32_t z0,
                  uint32_t x1, uint32_t y1, uint32_t z1);
    template <class T> void TakeSizes(const cOvdImage<T>& image);
    // One transfer at the position, which then moves on by `bytes` whatever was written.
    void WriteBytes(const void* source, uint64_t bytes);

    // Pieces of a file the host keeps, each handed to the disk once written (OpenEmptied).
    static constexpr uint64_t kWritebackBytes = uint64_t{4} << 20;

    Platform::cRawFileHandle mFile;
    bool mWritesBack = false;
};

} // namespace Ovidane
