#include "largevolume/cTypedSliceWriter.h"

#include "math/cImageMathManager.h"

namespace Ovidane {

cTypedSliceWriter::cTypedSliceWriter(const std::string& fileName)
    : cOvdObject("cTypedSliceWriter"), mWriter(new cUnmanagedRawFileWriter(fileName)),
      mBox(new cImageBox) {
    mWriter->Open();
}

template <class T>
void cTypedSliceWriter::Convert(const cFloatImagePtr& slice, cCountedPtr<cOvdImage<T>>& target) {
    const cImageDimensions size = slice->GetDimensions();
    if (!target || !(target->GetDimensions() == size))
        target = new cOvdImage<T>(size, Contiguous3D, GetObjectName());
    *mBox = cImageBox{0, 0, 0, size.x - 1, size.y - 1, size.z - 1};
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    if constexpr (sizeof(T) == 1)
        math->ConvertRealtoByteRoi(slice, target, mBox, mBox);
    else
        math->ConvertRealtoShortRoi(slice, target, mBox, mBox);
}

bool cTypedSliceWriter::Write(const cFloatImagePtr& slice, uint32_t type) {
    return Guard([&] {
        if (!slice || !IsKnownType(type))
            return false;
        if (type == kFloat) {
            mWriter->Write(slice);
        } else if (type == kShort) {
            Convert(slice, mShortImage);
            mWriter->Write(mShortImage);
        } else {
            Convert(slice, mByteImage);
            mWriter->Write(mByteImage);
        }
        return mWriter->GetLastError().empty();
    });
}

bool cTypedSliceWriter::Close() {
    return Guard([&] {
        const bool closed = mWriter->Close();
        return closed && mWriter->GetLastError().empty();
    });
}

} // namespace Ovidane
