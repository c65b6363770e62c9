#pragma once
#include <cstdint>
#include <string>

#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The rows of a stack file that a row of subvolume windows shares, held across the stack's
// whole width as the file holds them (8-bit, 16-bit or float pixels). A window's rows of a
// slice lie in the file across the whole width, so every window read them all; the windows
// of one row of subvolumes now convert their columns from memory, and the file is read about
// once per cut instead of once per column of subvolumes.
class cInputBand : public cOvdObject {
public:
    // `capacity`: the bytes of the largest band it will hold (BytesFor), taken at the first
    // Read and kept for every band, so that the memory manager keeps one region for all.
    cInputBand(std::string file, const cImageDimensions& stack, uint32_t pixelBytes,
               uint64_t capacity);

    // The memory a band for the window `box` takes.
    static uint64_t BytesFor(const cImageDimensions& stack, const cImageBox& box,
                             uint32_t pixelBytes);

    // The box's pixels as floats into `window` (box-sized or larger, from its origin): from
    // the rows held when they are the box's, else read first. False where the file is short.
    bool Read(const cImageBox& box, const cFloatImagePtr& window);

private:
    bool Fill(const cImageBox& box);
    // The band's rows as an image of T over the kept memory.
    template <class T> cCountedPtr<cOvdImage<T>> View() const;
    template <class T> void Convert(const cImageBox& box, const cFloatImage& window) const;

    std::string mFile;
    cImageDimensions mStack;
    uint32_t mPixelBytes;
    uint64_t mCapacity;
    // The rows and slices held, across the whole width; none before the first Read.
    bool mHolds = false;
    uint32_t mY0 = 0, mY1 = 0, mZ0 = 0, mZ1 = 0;
    cCountedPtr<cOvdImage<uint8_t>> mMemory;
};

} // namespace Ovidane
