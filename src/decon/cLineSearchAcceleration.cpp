#include "decon/cLineSearchAcceleration.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "core/cException.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cLineSearchAcceleration::cLineSearchAcceleration() {
    SetObjectName("cLineSearchAcceleration");
}

void cLineSearchAcceleration::SetGuardBands(uint32_t x1, uint32_t x2, uint32_t y1, uint32_t y2,
                                            uint32_t z1, uint32_t z2) {
    mGuard[0] = x1;
    mGuard[1] = x2;
    mGuard[2] = y1;
    mGuard[3] = y2;
    mGuard[4] = z1;
    mGuard[5] = z2;
}

// Made once for the stored size; a size of (1, 1, 1) means nobody has set one yet.
cFloatImagePtr cLineSearchAcceleration::MakeImage(cFloatImagePtr& image,
                                                  const cImageDimensions& size,
                                                  const char* operation) {
    if (size == cImageDimensions{1, 1, 1})
        Fail(std::string("Invalid Dimensions in ") + operation, OVD_ERR_PARAMETER);
    if (image.IsNull() || !(image->GetDimensions() == size))
        image = new cOvdImage<float>(size, GetObjectName());
    return image;
}

cFloatImagePtr cLineSearchAcceleration::GetReblurredImage() {
    return Guard([&] { return MakeImage(mReblurred, mDimensions, "GetReblurredImage"); });
}

cFloatImagePtr cLineSearchAcceleration::GetNewImageEstimate() {
    return Guard([&] { return MakeImage(mEstimate, mDimensions, "GetNewImageEstimate"); });
}

void cLineSearchAcceleration::Apply(cFloatImagePtr& object, cFloatImagePtr& original,
                                    cFloatImagePtr& psf) {
    Guard([&] {
        if (object.IsNull() || original.IsNull() || psf.IsNull() || mReblurred.IsNull() ||
            mEstimate.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        const cImageDimensions size = object->GetDimensions();
        for (const cFloatImagePtr* image : {&original, &psf, &mReblurred, &mEstimate})
            if (!((*image)->GetDimensions() == size))
                Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const cFloatImagePtr A = MakeImage(mWorkA, size, "Apply");
        const cFloatImagePtr D = MakeImage(mDirection, size, "Apply");
        const cFloatImagePtr C = MakeImage(mChange, size, "Apply");

        cFFTManager::Instance().Convolve(mEstimate, psf, A, 2);
        math->SubtractImage(A, mReblurred, C);
        math->SubtractImage(mEstimate, object, D);

        // The relative change of each pixel; the most negative one says how far the step
        // may go before a pixel of the object reaches 0.
        math->DivideImage(D, object, A);
        const float lowest = math->FindMinimumValue(A);
        const bool limited = lowest < 0.0f;
        float tmax = 0.0f;
        if (limited)
            tmax = std::max(-1.0f / lowest, 1.0f);

        // The likelihood sum needs room for two planes; a stack has it in A, which is free
        // now, a single plane gets a two-plane image of its own.
        cFloatImagePtr W = A;
        if (size.z == 1)
            W = MakeImage(mTwoPlanes, cImageDimensions{size.x, size.y, 2}, "Apply");
        const auto likelihood = [&](float t) {
            return math->ComputeLogLikelihoodIncreaseByLineSearch(original, mReblurred, C, W, t,
                                                                  mGuard[0], mGuard[1], mGuard[2],
                                                                  mGuard[3], mGuard[4], mGuard[5]);
        };

        // t = 1 is the plain update, which never lowers the likelihood; t doubles only while
        // the likelihood still rises, so the step taken is never worse than the plain one.
        float t = 1.0f;
        float best = likelihood(t);
        for (;;) {
            const float next = 2.0f * t;
            if (limited && next >= tmax) {
                // Doubling would pass the point where a pixel reaches 0: the last candidate
                // is that point itself.
                if (tmax > t) {
                    const float atLimit = likelihood(tmax);
                    if (atLimit > best)
                        t = tmax;
                }
                break;
            }
            const float value = likelihood(next);
            // A likelihood that isn't a number (an overflowing step) ends the search too.
            if (!(value > best))
                break;
            t = next;
            best = value;
        }
        mLastStep = t;
        MessageStream() << "Line search factor = " << t << '\n';

        math->MultiplyImageByConstant(D, t, D);
        math->AddImage(object, D, object);
    });
}

} // namespace Ovidane
