#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "image/cOvdImage.h"
#include "io/cRasterFileReader.h"
#include "platform/cRawFileHandle.h"

namespace Ovidane {

// Reads raw stacks (8-bit, 16-bit or float pixels, no header) into images, whole or by
// box, through the system's unbuffered file handle. Each transfer is as large as the
// file's and the image's layouts allow together: a contiguous image or box is one read.
//
// Sizes: Read takes them from the image; the region reads use the sizes this reader
// holds, which describe the file and may differ from the image's (hence the constructor
// with sizes). The depth is never checked against the file: a box past the file's end
// simply comes up short.
//
// Boxes are inclusive: x0..x1 holds x1 - x0 + 1 pixels. A box that is inverted, lies
// outside the file's width or height, or doesn't fit the image raises a cException with
// code 2 before anything is read.
class cUnmanagedRawFileReader : public cRasterFileReader {
public:
    explicit cUnmanagedRawFileReader(std::string fileName);
    cUnmanagedRawFileReader(std::string fileName, uint32_t width, uint32_t height, uint32_t depth);
    ~cUnmanagedRawFileReader() override;

    // Opens the file for reading (others may have it open too) at position 0. False when
    // the system refuses it; the handle then stays -1.
    bool Open() override;
    // Closes the file if open; always true.
    bool Close() override;

    // The system's handle, -1 while no file is open.
    int GetHandle() const { return mFile.Descriptor(); }
    // Byte position of the next whole-stack read.
    uint64_t GetPosition() const { return mFile.Position(); }

    // Reads a whole stack at the current position, which moves on behind it. The sizes
    // are set from the image first. One read for a contiguous image, one per slice
    // otherwise. False for a null image or a short read.
    bool Read(const cCountedPtr<cOvdImage<float>>& image);
    bool Read(const cCountedPtr<cOvdImage<uint16_t>>& image);
    bool Read(const cCountedPtr<cOvdImage<uint8_t>>& image);

    // Copies the file box x0..x1, y0.., z0.. of a float stack to the image box dx0..dx1,
    // dy0..dy1, dz0..dz1. The two boxes have one size, set by x0..x1 across and by the
    // target box down and deep; y1 and z1 aren't consulted. Each file slice is read whole
    // into a slice buffer that the reader keeps until Close(), and the box's rows are
    // copied out of it. A slice that comes up short gives the image only the pixels that
    // arrived whole, is noted in GetLastError(), and the next slice is read all the same:
    // the answer is true for any image that isn't null.
    bool ReadRegion(const cCountedPtr<cOvdImage<float>>& image, uint32_t x0, uint32_t y0,
                    uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1, uint32_t dx0, uint32_t dy0,
                    uint32_t dz0, uint32_t dx1, uint32_t dy1, uint32_t dz1);

    // Read the file box x0..x1, y0..y1, z0..z1 into the image, row r of slice s of the box
    // going to line r of slice s at column 0. Each row is read where it lies, so nothing
    // but the box moves; rows that follow each other in both the file and the image (a
    // box the width of both) are read in one transfer, and a whole-slice box into a
    // contiguous image in one transfer for all of it. False for a null image or at the
    // first short read.
    bool ReadRegion8(const cCountedPtr<cOvdImage<uint8_t>>& image, uint32_t x0, uint32_t y0,
                     uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);
    bool ReadRegion16(const cCountedPtr<cOvdImage<uint16_t>>& image, uint32_t x0, uint32_t y0,
                      uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);
    // The same into a float image: cuts a box out of a large stack without reading what
    // lies beside it. A file of 8-bit or 16-bit pixels (SetPixelBytes) is converted by value
    // on the way, its box read in bands of whole rows.
    bool ReadRegionFloat(const cCountedPtr<cOvdImage<float>>& image, uint32_t x0, uint32_t y0,
                         uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);

    // Bytes per pixel of the file that ReadRegionFloat reads: 4 (float, the default), 2
    // (unsigned 16-bit) or 1 (unsigned 8-bit); anything else is refused with code 2.
    void SetPixelBytes(uint32_t bytes);

private:
    template <class T> bool ReadStack(const cCountedPtr<cOvdImage<T>>& image);
    template <class T>
    bool ReadBox(const char* operation, const cCountedPtr<cOvdImage<T>>& image, uint32_t x0,
                 uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);
    // The size of the box x0..x1, y0..y1, z0..z1; an inverted box, one outside the file's
    // width or height, or one larger than the image is refused with code 2.
    cImageDimensions CheckedBox(const char* operation, const cImageDimensions& image, uint32_t x0,
                                uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1,
                                uint32_t z1) const;
    template <class Source>
    bool ReadConverted(const cCountedPtr<cOvdImage<float>>& image, uint32_t x0, uint32_t y0,
                       uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1);
    // One transfer into `target`; a short one is noted and answers false.
    bool ReadBytes(void* target, uint64_t bytes);
    // `count` bands of `bandBytes`, `stride` apart in the file from the position on, side by
    // side into `target` (cRawFileHandle::ReadSpaced); a short read is noted, answering false.
    bool ReadBandsSpaced(void* target, uint64_t bandBytes, uint32_t count, uint64_t stride);

    Platform::cRawFileHandle mFile;
    uint32_t mPixelBytes = sizeof(float);
};

} // namespace Ovidane
