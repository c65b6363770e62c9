#include "decon/cVectorExtrapolationAcceleration.h"

#include <ostream>
#include <utility>

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cVectorExtrapolationAcceleration::cVectorExtrapolationAcceleration() {
    SetObjectName("cVectorExtrapolationAcceleration");
}

cFloatImagePtr cVectorExtrapolationAcceleration::MakeImage(cFloatImagePtr& image,
                                                           const cImageDimensions& size) {
    if (image.IsNull() || !(image->GetDimensions() == size))
        image = new cOvdImage<float>(size, GetObjectName());
    return image;
}

cFloatImagePtr cVectorExtrapolationAcceleration::GetMultiplicationFactor() {
    return Guard([&] {
        // A size of (1, 1, 1) means nobody has set one yet.
        if (mDimensions == cImageDimensions{1, 1, 1})
            Fail("Invalid Dimensions in GetMultiplicationFactor", OVD_ERR_PARAMETER);
        return MakeImage(mFactor, mDimensions);
    });
}

void cVectorExtrapolationAcceleration::Apply(cFloatImagePtr& object, cFloatImagePtr& /*original*/,
                                             cFloatImagePtr& /*psf*/) {
    Guard([&] {
        if (object.IsNull() || mFactor.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        const cImageDimensions size = object->GetDimensions();
        if (!(mFactor->GetDimensions() == size))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        MakeImage(mWorkA, size);
        MakeImage(mWorkB, size);
        MakeImage(mWorkC, size);
        const bool first = mIteration == 0 || mGradient.IsNull() || mLastEstimate.IsNull() ||
                           !(mGradient->GetDimensions() == size);
        if (first) {
            // No history yet: a zero last gradient makes α 0, the plain update.
            MakeImage(mGradient, size);
            MakeImage(mLastEstimate, size);
            math->SetImageToConstant(mWorkA, 0.0f);
            math->SetImageToConstant(mGradient, 0.0f);
            ++mIteration;
        } else {
            // A takes the last gradient and C the last plain update; their old contents are
            // overwritten below.
            std::swap(mWorkA, mGradient);
            std::swap(mWorkC, mLastEstimate);
        }
        math->CopyImage(object, mLastEstimate);
        math->CopyImage(mFactor, mWorkB);

        // h = x · ln M; a factor that isn't positive has no logarithm and counts as no change.
        math->SubtractImageByConstantAndThreshold(mWorkB, 0.0f, 0.0f, 1.0f, 1);
        math->LogImage(mWorkB, mWorkB);
        math->MultiplyImage(object, mWorkB, mGradient);

        const float denominator = math->SumOfImageProduct(mWorkA, mWorkA);
        float alpha =
            denominator == 0.0f ? 0.0f : math->SumOfImageProduct(mGradient, mWorkA) / denominator;
        // Held in 0 to 1: a step back or beyond the last one's size is not to be trusted.
        if (!(alpha > 0.0f))
            alpha = 0.0f;
        if (alpha > 1.0f)
            alpha = 1.0f;
        mLastAlpha = alpha;
        MessageStream() << "Accel param = " << alpha << '\n';

        // With α = 0 the object is the plain update, which P holds as well.
        if (alpha == 0.0f)
            return;
        math->PowerOfImageDivisionWithThreshold(mLastEstimate, mWorkC, object, alpha, 1e-20f, 1.0f);
        math->MultiplyImage(object, mLastEstimate, object);
    });
}

} // namespace Ovidane
