#include "decon/cGoodsRoughnessNoiseSmoothing.h"

#include <utility>

#include "core/cException.h"
#include "math/RoughnessStep.h"

namespace Ovidane {

cGoodsRoughnessNoiseSmoothing::cGoodsRoughnessNoiseSmoothing(float factor) {
    SetObjectName("cGoodsRoughnessNoiseSmoothing");
    // The factor is given on the scale of the user's regularisation setting.
    if (factor >= 0.0f)
        mBeta = factor * 0.0001f;
}

void cGoodsRoughnessNoiseSmoothing::MakeTarget(const cImageDimensions& size) {
    if (mTarget && mTarget->GetDimensions() == size)
        return;
    mTarget = new cOvdImage<float>(size, GetObjectName());
}

void cGoodsRoughnessNoiseSmoothing::Initialize(const cImageDimensions& size) {
    Guard([&] {
        if (mBeta > 0.0f)
            MakeTarget(size);
    });
}

void cGoodsRoughnessNoiseSmoothing::Apply(cFloatImagePtr& image, uint32_t /*iteration*/) {
    Guard([&] {
        if (image.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(mBeta > 0.0f))
            return;
        MakeTarget(image->GetDimensions());
        GoodsRoughnessStep(*image, *mTarget, mBeta);
        std::swap(image, mTarget);
    });
}

} // namespace Ovidane
