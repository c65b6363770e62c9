#include "largevolume/cStackNonNegativity.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/cWorkerPool.h"
#include "core/cWorkerThreads.h"
#include "math/ImageWalk.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// The fewest pixels whose share of `pixels` is not below `share`, as the search divides:
// 0 when no share is asked for, above `pixels` when it can't be reached.
uint64_t RankOfShare(float share, double pixels) {
    const double wanted = share;
    double rank = std::max(0.0, std::ceil(wanted * pixels));
    while (rank > 0 && !((rank - 1) / pixels < wanted))
        --rank;
    while (rank / pixels < wanted)
        ++rank;
    return static_cast<uint64_t>(rank);
}

} // namespace

cStackNonNegativity::cStackNonNegativity(float originalSum, float toleratedShare, double pixels,
                                         uint64_t mostKept)
    : cOvdObject("cStackNonNegativity"), mOriginalSum(originalSum), mToleratedShare(toleratedShare),
      mPixels(pixels), mMinimum(kInfinity), mKthSmallest(kInfinity) {
    // Shares outside (0, 1] and stacks without pixels are left to the counting.
    if (toleratedShare > 0.0f && toleratedShare <= 1.0f && pixels >= 1.0) {
        const uint64_t rank = RankOfShare(toleratedShare, pixels);
        if (rank >= 1 && rank <= mostKept) {
            const uint64_t keepers =
                std::min<uint64_t>(mostKept / rank, uint64_t(cWorkerThreads::Count()));
            for (uint64_t i = 0; i < keepers; ++i)
                mSmallest.push_back(
                    std::make_unique<cSmallestValues>(static_cast<std::size_t>(rank)));
        }
    }
}

void cStackNonNegativity::FirstLook(const cFloatImagePtr& slice) {
    Guard([&] {
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const float low = math->FindMinimumValue(slice);
        if (low < mMinimum)
            mMinimum = low;
        mNegative += math->CountPixelInRange(slice, -kInfinity, 0.0f);
        if (mSmallest.empty())
            return;
        // Pieces of whole lines, a slice's lines in a row, spread over the keepers.
        const cImageDimensions size = slice->GetDimensions();
        const uint32_t lines =
            std::max<uint32_t>(1, uint32_t(ImageWalk::kPiecePixels / std::max(size.x, 1u)));
        const uint32_t pieces = (size.y + lines - 1) / lines;
        const int threads =
            std::min<int>(int(mSmallest.size()), ImageWalk::ThreadsFor(size.Voxels()));
        cWorkerPool::ForEach(int64_t{pieces} * size.z, threads, [&](int64_t item, int worker) {
            const auto z = static_cast<uint32_t>(item / pieces);
            const uint32_t y = static_cast<uint32_t>(item % pieces) * lines;
            mSmallest[worker]->Look(slice->GetLinePointer(y, z),
                                    std::size_t{size.x} * std::min(lines, size.y - y));
        });
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
        if (NeedsSecondLook())
            cImageMathManager::Instance().GetImageMath()->CountPixelsBelowLimits(slice, mLimits,
                                                                                 mCounts);
    });
}

bool cStackNonNegativity::ShareReached(std::size_t k, uint64_t below) const {
    if (mSmallest.empty())
        return !(double(below) / mPixels < mToleratedShare);
    // At least K pixels lie below the step when the K-th smallest does.
    return mKthSmallest < mLimits[k];
}

void cStackNonNegativity::Decide() {
    mDecided = true;
    mPedestal = 0.0;
    mScale = 1.0;
    if (!mNeeded)
        return;
    if (!mSmallest.empty()) {
        for (std::size_t i = 1; i < mSmallest.size(); ++i)
            mSmallest[0]->Merge(*mSmallest[i]);
        mKthSmallest = mSmallest[0]->KthSmallest();
    }
    // The constraint's search: up by steps until the share is reached; a step above -1 ends
    // it, the first step excepted.
    std::size_t k = 0;
    uint64_t below = mCounts[0];
    while (!ShareReached(k, below)) {
        ++k;
        below += mCounts[k];
        if (mSteps[k] > -1.0)
            break;
    }
    const double t = mSteps[k];
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
        // The steps and roundings of the constraint, in one pass.
        cImageMathManager::Instance().GetImageMath()->SubtractThresholdAndScaleImage(
            slice, static_cast<float>(mPedestal), 0.0f, 0.0f, static_cast<float>(mScale));
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
