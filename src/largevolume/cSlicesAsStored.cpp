#include "largevolume/cSlicesAsStored.h"

#include <algorithm>

#include "math/cImageMathManager.h"

namespace Ovidane {

cSlicesAsStored::cSlicesAsStored(cUnmanagedRawFileReader& reader, const cImageDimensions& plane,
                                 uint32_t depth, uint32_t pixelBytes, const std::string& owner,
                                 uint64_t batchBytes)
    : mReader(reader), mPlane(plane), mDepth(depth), mPixelBytes(pixelBytes), mOwner(owner) {
    const uint64_t sliceBytes = std::max<uint64_t>(plane.Voxels() * pixelBytes, 1);
    mBatch = static_cast<uint32_t>(
        std::clamp<uint64_t>((batchBytes + sliceBytes - 1) / sliceBytes, 1, std::max(depth, 1u)));
}

bool cSlicesAsStored::Read(uint32_t z, const cFloatImagePtr& slice) {
    if (mPixelBytes != 1 && mPixelBytes != 2)
        return mReader.ReadRegionFloat(slice, 0, 0, z, mPlane.x - 1, mPlane.y - 1, z);
    if ((mCount == 0 || z < mFirst || z >= mFirst + mCount) && !Fill(z))
        return false;
    const uint32_t k = z - mFirst;
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    if (mPixelBytes == 1)
        math->ConvertUnsignedByteToReal(
            new cOvdImage<uint8_t>(mBytes->GetSlicePointer(k), mPlane, Contiguous3D, mOwner),
            slice);
    else
        math->ConvertUnsignedShortToReal(
            new cOvdImage<uint16_t>(mShorts->GetSlicePointer(k), mPlane, Contiguous3D, mOwner),
            slice);
    return true;
}

bool cSlicesAsStored::Fill(uint32_t z) {
    mCount = 0;
    const uint32_t count = std::min(mBatch, mDepth - z);
    const cImageDimensions batch{mPlane.x, mPlane.y, mBatch};
    const uint32_t x1 = mPlane.x - 1, y1 = mPlane.y - 1, z1 = z + count - 1;
    bool read = false;
    if (mPixelBytes == 1) {
        if (!mBytes)
            mBytes = new cOvdImage<uint8_t>(batch, Contiguous3D, mOwner);
        read = mReader.ReadRegion8(mBytes, 0, 0, z, x1, y1, z1);
    } else {
        if (!mShorts)
            mShorts = new cOvdImage<uint16_t>(batch, Contiguous3D, mOwner);
        read = mReader.ReadRegion16(mShorts, 0, 0, z, x1, y1, z1);
    }
    if (!read)
        return false;
    mFirst = z;
    mCount = count;
    return true;
}

} // namespace Ovidane
