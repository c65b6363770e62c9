#include "largevolume/cInputBand.h"

#include <cstring>

#include "io/cUnmanagedRawFileReader.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

// One window's lines out of the band: its columns from the box's first, its rows and slices
// the band's own.
class cBandWindow : public cWindowLines {
public:
    cBandWindow(cCountedPtr<cOvdImage<uint8_t>> memory, uint64_t rowBytes, uint32_t rows,
                const cImageBox& box, uint32_t pixelBytes)
        : mMemory(std::move(memory)), mRowBytes(rowBytes), mRows(rows), mBox(box),
          mPixelBytes(pixelBytes), mMath(cImageMathManager::Instance().GetImageMath()) {}

    cImageDimensions Size() const override {
        return {mBox.x1 - mBox.x0 + 1, mBox.y1 - mBox.y0 + 1, mBox.z1 - mBox.z0 + 1};
    }

    void Line(uint32_t x, uint32_t y, uint32_t z, uint32_t count, float* out) const override {
        const unsigned char* from = mMemory->GetSlicePointer(0) +
                                    (uint64_t{z} * mRows + y) * mRowBytes +
                                    uint64_t{mBox.x0 + x} * mPixelBytes;
        // The padding asks for a slice's rows in turn, a window's width apart in memory:
        // too far apart for the hardware to guess. The row a few ahead is asked for now.
        if (y + kAhead < mRows) {
            const unsigned char* ahead = from + kAhead * mRowBytes;
            for (uint64_t b = 0; b < uint64_t{count} * mPixelBytes; b += 64)
                __builtin_prefetch(ahead + b, 0, 3);
        }
        if (mPixelBytes == 1)
            mMath->ConvertUnsignedByteToReal(from, out, int(count));
        else if (mPixelBytes == 2)
            mMath->ConvertUnsignedShortToReal(reinterpret_cast<const uint16_t*>(from), out,
                                              int(count));
        else
            std::memcpy(out, from, std::size_t{count} * sizeof(float));
    }

private:
    static constexpr uint64_t kAhead = 4;
    cCountedPtr<cOvdImage<uint8_t>> mMemory;
    uint64_t mRowBytes;
    uint32_t mRows;
    cImageBox mBox;
    uint32_t mPixelBytes;
    cImageMathPtr mMath;
};

} // namespace

cInputBand::cInputBand(std::string file, const cImageDimensions& stack, uint32_t pixelBytes,
                       uint64_t capacity)
    : cOvdObject("cInputBand"), mFile(std::move(file)), mStack(stack), mPixelBytes(pixelBytes),
      mCapacity(capacity) {}

uint64_t cInputBand::BytesFor(const cImageDimensions& stack, const cImageBox& box,
                              uint32_t pixelBytes) {
    return uint64_t{stack.x} * (box.y1 - box.y0 + 1) * (box.z1 - box.z0 + 1) * pixelBytes;
}

std::shared_ptr<const cWindowLines> cInputBand::Lines(const cImageBox& box) {
    return Guard([&]() -> std::shared_ptr<const cWindowLines> {
        if (box.x1 < box.x0 || box.y1 < box.y0 || box.z1 < box.z0 || box.x1 >= mStack.x ||
            box.y1 >= mStack.y || box.z1 >= mStack.z)
            Fail("Invalid box in cInputBand::Lines", OVD_ERR_PARAMETER);
        const bool held =
            mHolds && box.y0 == mY0 && box.y1 == mY1 && box.z0 == mZ0 && box.z1 == mZ1;
        if (!held && !Fill(box))
            return nullptr;
        return std::make_shared<cBandWindow>(mMemory, uint64_t{mStack.x} * mPixelBytes,
                                             mY1 - mY0 + 1, box, mPixelBytes);
    });
}

bool cInputBand::Fill(const cImageBox& box) {
    mHolds = false;
    if (BytesFor(mStack, box, mPixelBytes) > mCapacity)
        Fail("Band larger than its room in cInputBand::Lines", OVD_ERR_PARAMETER);
    if (!mMemory) {
        // Whole rows of the file, as many as the capacity holds.
        const uint64_t rowBytes = uint64_t{mStack.x} * mPixelBytes;
        const cImageDimensions rows{static_cast<uint32_t>(rowBytes),
                                    static_cast<uint32_t>((mCapacity + rowBytes - 1) / rowBytes),
                                    1};
        mMemory = new cOvdImage<uint8_t>(rows, Contiguous3D, GetObjectName());
    }
    cUnmanagedRawFileReader reader(mFile, mStack.x, mStack.y, mStack.z);
    if (!reader.Open())
        Fail("Cannot open " + mFile + " in cInputBand::Lines", OVD_ERR_PARAMETER);
    // The box's rows and slices across the whole width.
    mY0 = box.y0;
    mY1 = box.y1;
    mZ0 = box.z0;
    mZ1 = box.z1;
    const uint32_t x1 = mStack.x - 1;
    bool complete = false;
    switch (mPixelBytes) {
    case 1:
        complete = reader.ReadRegion8(View<uint8_t>(), 0, mY0, mZ0, x1, mY1, mZ1);
        break;
    case 2:
        complete = reader.ReadRegion16(View<uint16_t>(), 0, mY0, mZ0, x1, mY1, mZ1);
        break;
    default:
        complete = reader.ReadRegionFloat(View<float>(), 0, mY0, mZ0, x1, mY1, mZ1);
        break;
    }
    reader.Close();
    mHolds = complete;
    return complete;
}

template <class T> cCountedPtr<cOvdImage<T>> cInputBand::View() const {
    return new cOvdImage<T>(reinterpret_cast<T*>(mMemory->GetSlicePointer(0)),
                            cImageDimensions{mStack.x, mY1 - mY0 + 1, mZ1 - mZ0 + 1}, Contiguous3D,
                            GetObjectName());
}

} // namespace Ovidane
