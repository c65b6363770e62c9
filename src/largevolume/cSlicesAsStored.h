#pragma once
#include <cstdint>
#include <string>

#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"
#include "io/cUnmanagedRawFileReader.h"

namespace Ovidane {

// The slices of a stack file in order, as floats. Slices of 8-bit and 16-bit stacks come a
// few at a time as the file holds them, in reads of about 4 MB (which the file spreads over
// the worker threads), and the image math converts each; float slices are read straight into
// the image.
class cSlicesAsStored {
public:
    static constexpr uint64_t kBatchBytes = uint64_t{4} << 20;

    // `batchBytes`: the bytes of a read, rounded up to whole slices.
    cSlicesAsStored(cUnmanagedRawFileReader& reader, const cImageDimensions& plane, uint32_t depth,
                    uint32_t pixelBytes, const std::string& owner,
                    uint64_t batchBytes = kBatchBytes);

    // Slice z into `slice` (of the plane's size); z must follow the slice read before. False
    // where the file is short.
    bool Read(uint32_t z, const cFloatImagePtr& slice);

private:
    // Reads the batch of slices that starts at z.
    bool Fill(uint32_t z);

    cUnmanagedRawFileReader& mReader;
    cImageDimensions mPlane;
    uint32_t mDepth, mPixelBytes, mBatch;
    std::string mOwner;
    // The slices held: first .. first + count - 1.
    uint32_t mFirst = 0, mCount = 0;
    cCountedPtr<cOvdImage<uint8_t>> mBytes;
    cCountedPtr<cOvdImage<uint16_t>> mShorts;
};

} // namespace Ovidane
