#include "decon/cGoodsRoughnessNoiseSmoothing.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cGoodsRoughnessNoiseSmoothing::cGoodsRoughnessNoiseSmoothing(float factor) {
    SetObjectName("cGoodsRoughnessNoiseSmoothing");
    // The factor is given on the scale of the user's regularisation setting.
    if (factor >= 0.0f)
        mBeta = factor * 0.0001f;
}

void cGoodsRoughnessNoiseSmoothing::MakeWorkImages(const cImageDimensions& size) {
    if (mSquareRoot && mSquareRoot->GetDimensions() == size)
        return;
    mSquareRoot = new cOvdImage<float>(size, GetObjectName());
    mWork = new cOvdImage<float>(size, GetObjectName());
}

void cGoodsRoughnessNoiseSmoothing::Initialize(const cImageDimensions& size) {
    Guard([&] {
        if (mBeta > 0.0f)
            MakeWorkImages(size);
    });
}

void cGoodsRoughnessNoiseSmoothing::Apply(cFloatImagePtr& image, uint32_t /*iteration*/) {
    Guard([&] {
        if (image.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(mBeta > 0.0f))
            return;
        MakeWorkImages(image->GetDimensions());
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->SquareRootImage(image, mSquareRoot);
        math->GoodsRoughnessPenalty(image, mSquareRoot, mWork, mBeta);
    });
}

} // namespace Ovidane
