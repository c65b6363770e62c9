#include "largevolume/cInputBand.h"

#include <cstring>
#include <type_traits>

#include "core/cWorkerPool.h"
#include "io/cUnmanagedRawFileReader.h"
#include "math/ImageWalk.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cInputBand::cInputBand(std::string file, const cImageDimensions& stack, uint32_t pixelBytes,
                       uint64_t capacity)
    : cOvdObject("cInputBand"), mFile(std::move(file)), mStack(stack), mPixelBytes(pixelBytes),
      mCapacity(capacity) {}

uint64_t cInputBand::BytesFor(const cImageDimensions& stack, const cImageBox& box,
                              uint32_t pixelBytes) {
    return uint64_t{stack.x} * (box.y1 - box.y0 + 1) * (box.z1 - box.z0 + 1) * pixelBytes;
}

bool cInputBand::Read(const cImageBox& box, const cFloatImagePtr& window) {
    return Guard([&] {
        const cImageDimensions size = window->GetDimensions();
        if (box.x1 < box.x0 || box.y1 < box.y0 || box.z1 < box.z0 || box.x1 >= mStack.x ||
            box.y1 >= mStack.y || box.z1 >= mStack.z || box.x1 - box.x0 >= size.x ||
            box.y1 - box.y0 >= size.y || box.z1 - box.z0 >= size.z)
            Fail("Invalid box in cInputBand::Read", OVD_ERR_PARAMETER);
        const bool held =
            mHolds && box.y0 == mY0 && box.y1 == mY1 && box.z0 == mZ0 && box.z1 == mZ1;
        if (!held && !Fill(box))
            return false;
        switch (mPixelBytes) {
        case 1:
            Convert<uint8_t>(box, *window);
            break;
        case 2:
            Convert<uint16_t>(box, *window);
            break;
        default:
            Convert<float>(box, *window);
            break;
        }
        return true;
    });
}

bool cInputBand::Fill(const cImageBox& box) {
    mHolds = false;
    if (BytesFor(mStack, box, mPixelBytes) > mCapacity)
        Fail("Band larger than its room in cInputBand::Read", OVD_ERR_PARAMETER);
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
        Fail("Cannot open " + mFile + " in cInputBand::Read", OVD_ERR_PARAMETER);
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

template <class T> void cInputBand::Convert(const cImageBox& box, const cFloatImage& window) const {
    const cCountedPtr<cOvdImage<T>> band = View<T>();
    const uint32_t rows = box.y1 - box.y0 + 1, columns = box.x1 - box.x0 + 1;
    const int64_t lines = int64_t{rows} * (box.z1 - box.z0 + 1);
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    cWorkerPool::ForEach(lines, ImageWalk::ThreadsFor(uint64_t(lines) * columns),
                         [&](int64_t line, int) {
                             const auto r = static_cast<uint32_t>(line % rows);
                             const auto s = static_cast<uint32_t>(line / rows);
                             const T* from = band->GetLinePointer(r, s) + box.x0;
                             float* to = window.GetLinePointer(r, s);
                             if constexpr (std::is_same_v<T, float>)
                                 std::memcpy(to, from, columns * sizeof(float));
                             else if constexpr (std::is_same_v<T, uint16_t>)
                                 math->ConvertUnsignedShortToReal(from, to, int(columns));
                             else
                                 math->ConvertUnsignedByteToReal(from, to, int(columns));
                         });
}

} // namespace Ovidane
