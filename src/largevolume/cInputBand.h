#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "decon/cWindowLines.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The rows of a stack file that a row of subvolume windows shares, held across the stack's
// whole width as the file holds them (8-bit, 16-bit or float pixels). A window's rows of a
// slice lie in the file across the whole width, so every window read them all; the windows
// of one row of subvolumes now take their columns from memory, converted line by line as
// they are padded, and the file is read about once per cut instead of once per column of
// subvolumes.
class cInputBand : public cOvdObject {
public:
    // `capacity`: the bytes of the largest band it will hold (BytesFor), taken at the first
    // Lines and kept for every band, so that the memory manager keeps one region for all.
    cInputBand(std::string file, const cImageDimensions& stack, uint32_t pixelBytes,
               uint64_t capacity);

    // The memory a band for the window `box` takes.
    static uint64_t BytesFor(const cImageDimensions& stack, const cImageBox& box,
                             uint32_t pixelBytes);

    // The window `box` read a line at a time from the rows held, which are read first when
    // they are not the box's; null where the file is short. The lines stay valid until the
    // next call.
    std::shared_ptr<const cWindowLines> Lines(const cImageBox& box);

private:
    bool Fill(const cImageBox& box);
    // The band's rows as an image of T over the kept memory.
    template <class T> cCountedPtr<cOvdImage<T>> View() const;

    std::string mFile;
    cImageDimensions mStack;
    uint32_t mPixelBytes;
    uint64_t mCapacity;
    // The rows and slices held, across the whole width; none before the first Lines.
    bool mHolds = false;
    uint32_t mY0 = 0, mY1 = 0, mZ0 = 0, mZ1 = 0;
    cCountedPtr<cOvdImage<uint8_t>> mMemory;
};

} // namespace Ovidane
