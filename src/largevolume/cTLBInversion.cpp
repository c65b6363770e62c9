#include "largevolume/cTLBInversion.h"

#include "math/cImageMathManager.h"

namespace Ovidane {

cTLBInversion::cTLBInversion(float maximum, float minimum)
    : cProcessingAction("cTLBInversion"), mMaximum(maximum), mMinimum(minimum) {}

int cTLBInversion::Process(cFloatImagePtr& image, uint32_t /*z*/) {
    return Guard([&] {
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        constexpr float kFloor = 1e-20f;
        // -p - (-(maximum + minimum)), floored in the same sweep.
        math->MultiplyImageByConstant(image, -1.0f, image);
        math->SubtractImageByConstantAndThreshold(image, -(mMaximum + mMinimum), kFloor, kFloor, 1);
        return 0;
    });
}

} // namespace Ovidane
