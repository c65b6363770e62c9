#pragma once
#include <cstdint>
#include <vector>

#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// A print of an image's pixels that tells whether an image is, bit for bit, the one printed
// before, without a copy of it: each line's bits are folded into four 64-bit lanes by a
// multiply-rotate round. A round is a bijection of its word for a fixed lane, so images that
// differ in one word always differ in their prints; images that differ in more match by
// chance with a probability of about 2^-64 per line. A print takes one read of the image,
// lines spread over the threads, and as many bytes as the image has lines times 32. A frozen
// image (cOvdImage::Freeze) printed last is known again by its number, without a read.
class cPixelPrint {
public:
    // Prints `image`: true when it matches the print kept from before, which it replaces.
    bool Retake(const cFloatImage& image);
    // Keeps no print: the next Retake answers false.
    void Forget() { mValid = false; }

    static constexpr int kLanes = 4;

private:
    cImageDimensions mSize;
    std::vector<uint64_t> mLanes;
    std::vector<uint64_t> mTaken;
    uint64_t mFrozenNumber = 0;
    bool mValid = false;
};

} // namespace Ovidane
