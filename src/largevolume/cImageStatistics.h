#pragma once
#include <cstdint>

#include "core/cImageDimensions.h"
#include "largevolume/cProcessingAction.h"

namespace Ovidane {

// Gathers, in one pass over a stack, the mean, minimum and maximum of every slice, and
// from them the extremes and the mean of the whole stack and a per-slice factor that
// levels brightness jitter along z. The run's stages read these later: the dark current
// and the transmitted-light inversion take the extremes, each subvolume's intensity
// correction takes the factors of its slices.
//
// The profiles are images of 1 by 1 by depth, slice z's value at pixel (0, 0, z). All
// results are valid after Finish().
class cImageStatistics : public cProcessingAction {
public:
    // The size of the stack the pass will bring; makes the four profiles.
    cImageStatistics(uint32_t width, uint32_t height, uint32_t depth);
    ~cImageStatistics() override;

    // Records slice z. 1 for a null image or z at or past the depth, which ends the pass.
    int Process(cFloatImagePtr& image, uint32_t z) override;
    // Takes the stack's extremes and mean from the profiles, then the correction.
    int Finish() override;

    virtual float GetMaximum() const { return mMaximum; }
    virtual float GetMinimum() const { return mMinimum; }
    // Mean of the slice means.
    virtual float GetMean() const { return mMean; }
    virtual cFloatImagePtr GetAverageProfile() const { return mAverageProfile; }
    virtual cFloatImagePtr GetMaximumProfile() const { return mMaximumProfile; }
    virtual cFloatImagePtr GetMinimumProfile() const { return mMinimumProfile; }
    // Multiplying slice z by its value levels it with its neighbours.
    virtual cFloatImagePtr GetCorrectionProfile() const { return mCorrectionProfile; }
    virtual cImageDimensions GetDimensions() const { return mDimensions; }

    // Fills the correction profile from the average profile. The slices at the ends,
    // when they differ from the mean of their three neighbours by more than 5%, are
    // taken as that mean; inner slices are smoothed with the weights 1, 2, 1. A stack of
    // fewer than four slices is left as it is (every factor 1). 0, or 1 without profile.
    virtual int CalculateIntensityCorrection();

private:
    cFloatImagePtr mAverageProfile;
    cFloatImagePtr mMaximumProfile;
    cFloatImagePtr mMinimumProfile;
    cFloatImagePtr mCorrectionProfile;
    cImageDimensions mDimensions;
    float mMaximum = 0.0f;
    float mMinimum = 0.0f;
    float mMean = 0.0f;
};

} // namespace Ovidane
