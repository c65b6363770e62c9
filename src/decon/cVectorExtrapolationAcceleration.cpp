#include "decon/cVectorExtrapolationAcceleration.h"

#include <ostream>
#include <utility>

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {
// How far one pass's extrapolation may move a pixel beyond its plain update, as a factor.
constexpr float kMaxRatio = 2.0f;
} // namespace

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
        MakeImage(mWorkC, size);
        const bool first = mIteration == 0 || mGradient.IsNull() || mLastEstimate.IsNull() ||
                           !(mGradient->GetDimensions() == size);
        if (first) {
            // No history yet: a zero last gradient makes α 0, the plain update.
            MakeImage(mGradient, size);
            MakeImage(mLastEstimate, size);
            math->SetImageToConstant(mWorkA, 0.0f);
            ++mIteration;
        } else {
            // A takes the last gradient and C the last plain update; the history images are
            // written anew below.
            std::swap(mWorkA, mGradient);
            std::swap(mWorkC, mLastEstimate);
        }

        // P = x · M, the plain update; h = P · ln M, this pass's log-gradient.
        double cross = 0, lastSquare = 0;
        math->ExtrapolationGradient(object, mFactor, mWorkA, mLastEstimate, mGradient, cross,
                                    lastSquare);
        float alpha = lastSquare == 0.0 ? 0.0f : static_cast<float>(cross / lastSquare);
        // Held in 0 to 1: a step back or beyond the last one's size is not to be trusted.
        if (!(alpha > 0.0f))
            alpha = 0.0f;
        if (alpha > 1.0f)
            alpha = 1.0f;
        mLastAlpha = alpha;
        MessageStream() << "Accel param = " << alpha << '\n';

        // x = P · (P / C)^α, held at the floor of every ML-EM estimate. The ratio is held
        // within kMaxRatio of 1: a pixel that has just left the floor (1e-20 to 1e-6, say)
        // has a ratio that says nothing of where it goes, and raised to α it would throw the
        // pixel far above the whole image (a spike of a million in a stack of a hundred).
        math->ExtrapolateWithFloor(mLastEstimate, mWorkC, object, alpha, kEstimateFloor, kMaxRatio,
                                   kEstimateFloor);
    });
}

} // namespace Ovidane
