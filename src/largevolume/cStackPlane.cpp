#include "largevolume/cStackPlane.h"

#include <utility>

#include "math/cImageMathManager.h"

namespace Ovidane {

cStackPlane::cStackPlane(uint32_t width, uint32_t height, cSliceCorrection correction)
    : cProcessingAction("cStackPlane"), mCorrection(std::move(correction)) {
    mPlane =
        new cOvdImage<float>(cImageDimensions{width, height, 1}, Contiguous3D, GetObjectName());
    cImageMathManager::Instance().GetImageMath()->SetImageToConstant(mPlane, 0.0f);
}

int cStackPlane::Process(cFloatImagePtr& image, uint32_t z) {
    return Guard([&] {
        if (mCorrection)
            mCorrection(image, z);
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const float low = math->FindMinimumValue(image);
        if (low < mMinimum)
            mMinimum = low;
        mSum += math->SumImage(image);
        math->AddImage(image, mPlane, mPlane);
        return 0;
    });
}

} // namespace Ovidane
