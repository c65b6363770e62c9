#include "decon/cMlem2DNonBlindMethodOptimization.h"

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cMlem2DNonBlindMethodOptimization::cMlem2DNonBlindMethodOptimization(uint32_t updates)
    : mUpdates(updates) {
    SetObjectName("cMlem2DNonBlindMethodOptimization");
}

void cMlem2DNonBlindMethodOptimization::Initialize() {
    Guard([&] {
        if (UsesSubPixels() && mDimensions.z > 1)
            Fail("sub-pixel factors above 1 need a stack of one plane", OVD_ERR_PARAMETER);
        cMlemNonBlindMethodOptimization::Initialize();
        SetObjectName("cMlem2DNonBlindMethodOptimization");
    });
}

void cMlem2DNonBlindMethodOptimization::Apply(cFloatImagePtr& object, cFloatImagePtr& original,
                                              cFloatImagePtr& psf) {
    Guard([&] {
        CheckInputs(object, original, psf);
        for (uint32_t i = 0; i < mUpdates; ++i)
            Update(object, original, psf, nullptr);
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->SubtractImageByConstantAndThreshold(psf, 0.0f, kEstimateFloor, kEstimateFloor, 1);
        math->SubtractImageByConstantAndThreshold(object, 0.0f, kEstimateFloor, kEstimateFloor, 1);
        if (!mPsfFloored) {
            ForgetPsfTransform();
            mPsfFloored = true;
        }
    });
}

} // namespace Ovidane
