#include "largevolume/cSuperResolution.h"

#include "math/cImageMathManager.h"

namespace Ovidane {

cSuperResolution::cSuperResolution(uint32_t xyFactor, uint32_t zFactor, uint32_t width,
                                   uint32_t height, uint32_t depth)
    : cProcessingAction("cSuperResolution"), mXYFactor(xyFactor),
      mZFactor(zFactor), mInputSize{width, height, depth} {
    Guard([&] {
        if (!Resamples())
            return;
        const uint32_t sx = xyFactor * width;
        const uint32_t sy = xyFactor * height;
        mResult = new cOvdImage<float>(cImageDimensions{sx, sy, 1}, Contiguous3D, GetObjectName());
        mWork =
            new cOvdImage<float>(cImageDimensions{sx, height, 1}, Contiguous3D, GetObjectName());
        mExtra = new cOvdImage<float>(cImageDimensions{sx, sy, 1}, Contiguous3D, GetObjectName());
    });
}

int cSuperResolution::Process(cFloatImagePtr& image, uint32_t /*z*/) {
    return Guard([&] {
        if (!Resamples())
            return 0;
        cImageMathManager::Instance().GetImageMath()->InterpolateBilinear(image, mResult, mWork,
                                                                          mExtra);
        image = mResult;
        return 0;
    });
}

cImageDimensions cSuperResolution::GetResultDimensions() const {
    return mResult ? mResult->GetDimensions() : cImageDimensions{mInputSize.x, mInputSize.y, 1};
}

} // namespace Ovidane
