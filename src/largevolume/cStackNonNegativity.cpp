#include "largevolume/cStackNonNegativity.h"

#include <cmath>
#include <limits>

#include "math/cImageMathManager.h"

namespace Ovidane {

cStackNonNegativity::cStackNonNegativity(float originalSum, float toleratedShare, double pixels)
    : cOvdObject("cStackNonNegativity"), mOriginalSum(originalSum), mToleratedShare(toleratedShare),
      mPixels(pixels), mMinimum(std::numeric_limits<float>::infinity()) {}

void cStackNonNegativity::FirstLook(const cFloatImagePtr& slice) {
    Guard([&] {
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const float low = math->FindMinimumValue(slice);
        if (low < mMinimum)
            mMinimum = low;
        mNegative += math->CountPixelInRange(slice, -std::numeric_limits<float>::infinity(), 0.0f);
    });
}

bool cStackNonNegativity::NeedsPedestal() {
    return Guard([&] {
        mNeeded = mMinimum < 0.0f && double(mNegative) / mPixels > mToleratedShare;
        if (!mNeeded)
            return false;
        // An infinite minimum would keep the pedestal below -1 for ever.
        if (!std::isfinite(mMinimum))
            Fail("Image values not finite in NeedsPedestal", OVD_ERR_PARAMETER);
        // Every step the search may reach: from nine tenths of the minimum, by tenths, up to
        // the first that passes -1 (at least the second, which ends a search that starts
        // above -1).
        const double shrink = 0.9f;
        mSteps.assign(1, shrink * mMinimum);
        while (!(mSteps.back() > -1.0) || mSteps.size() < 2)
            mSteps.push_back(shrink * mSteps.back());
        mLimits.clear();
        for (double step : mSteps)
            mLimits.push_back(static_cast<float>(step));
        mCounts.assign(mLimits.size(), 0);
        return true;
    });
}

void cStackNonNegativity::SecondLook(const cFloatImagePtr& slice) {
    Guard([&] {
        if (mNeeded)
            cImageMathManager::Instance().GetImageMath()->CountPixelsBelowLimits(slice, mLimits,
                                                                                 mCounts);
    });
}

void cStackNonNegativity::Decide() {
    mDecided = true;
    mPedestal = 0.0;
    mScale = 1.0;
    if (!mNeeded)
        return;
    // The constraint's search on the counts: the pixels below step k are the counts up to k.
    const double margin = 0.001f;
    std::size_t k = 0;
    uint64_t below = mCounts[0];
    double t = mSteps[0];
    double r = 0.0;
    while (r < mToleratedShare) {
        r = double(below) / mPixels;
        if (r < mToleratedShare) {
            ++k;
            t = mSteps[k];
            below += mCounts[k];
        }
        if (t > -1.0)
            r = mToleratedShare + margin;
    }
    // Raising by -t adds -t per pixel; the scale brings the sum back to the original one.
    mPedestal = t;
    mScale = mOriginalSum / (mOriginalSum - t * mPixels);
}

void cStackNonNegativity::Apply(const cFloatImagePtr& slice) {
    Guard([&] {
        if (!mDecided)
            Decide();
        if (!mNeeded)
            return;
        // The steps and roundings of the constraint.
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        math->SubtractImageByConstant(slice, static_cast<float>(mPedestal), slice);
        math->SubtractImageByConstantAndThreshold(slice, 0.0f, 0.0f, 0.0f, 1);
        math->MultiplyImageByConstant(slice, static_cast<float>(mScale), slice);
    });
}

double cStackNonNegativity::GetPedestal() {
    if (!mDecided)
        Decide();
    return mPedestal;
}

double cStackNonNegativity::GetScale() {
    if (!mDecided)
        Decide();
    return mScale;
}

} // namespace Ovidane
