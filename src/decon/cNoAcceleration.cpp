#include "decon/cNoAcceleration.h"

#include "core/cException.h"

namespace Ovidane {

cNoAcceleration::cNoAcceleration() {
    SetObjectName("cNoAcceleration");
}

cFloatImagePtr cNoAcceleration::GetMultiplicationFactor() {
    return Guard([&] {
        if (mDimensions == cImageDimensions{1, 1, 1})
            Fail("Invalid Dimensions in GetMultiplicationFactor", OVD_ERR_PARAMETER);
        if (mFactor.IsNull() || !(mFactor->GetDimensions() == mDimensions))
            mFactor = new cOvdImage<float>(mDimensions, GetObjectName());
        return mFactor;
    });
}

void cNoAcceleration::Apply(cFloatImagePtr& /*object*/, cFloatImagePtr& /*original*/,
                            cFloatImagePtr& /*psf*/) {}

} // namespace Ovidane
