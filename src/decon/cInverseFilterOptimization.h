#pragma once
#include <cstdint>

#include "decon/cOptimization.h"

namespace Ovidane {

// The one step of the inverse filter: object = inverse transform of
// G·conj(H) / (|H|² + K), G and H the transforms of the original image and of the PSF
// (sum 1, centre at pixel (0, 0, 0)). K comes from the noise level: three fixed classes,
// a factor given by the caller, or an estimate from the radial power spectra of the image
// and the PSF.
class cInverseFilterOptimization : public cOptimization {
public:
    cInverseFilterOptimization() = default;

    void SetAcceleration(const cAccelerationPtr& acceleration) override { (void)acceleration; }
    // Positive spacings only; otherwise the old ones stay.
    void SetSpacing(float x, float y, float z) override;
    // A positive factor only; otherwise the old one stays.
    void SetRegularizationFactor(float value) override;
    cAccelerationPtr GetAcceleration() override { return cAccelerationPtr(); }
    void Initialize() override { SetObjectName("cInverseFilterOptimization"); }
    // Needs a transform instance of the images' size on the calling thread. `object` may be
    // `original` itself: the filter then restores the image where it lies.
    void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) override;
    bool OnlyReadsPsf() const override { return true; }

    // One of DEC_FLAG_NOISE_LEVEL_LOW to DEC_FLAG_NOISE_LEVEL_ESTIMATE; others are ignored.
    void SetNoiseLevel(int32_t level);
    // The planes of the original image that the estimate looks at: the interior of a
    // subvolume, without its guard bands.
    void SetZRange(uint32_t first, uint32_t last);

    // Where the transform of the original image is kept between restorations of the same
    // image (an aberration search restores it once per candidate): a contiguous image of
    // the packed size (KeepKernel), filled by Apply when `filled` is false and read as it
    // stands when it is true. Results are the same bit for bit; null transforms every time.
    void UseImageSpectrum(const cFloatImagePtr& spectrum, bool filled);
    // The same for the original's sum over the interior planes, which an estimated K is
    // estimated from: a plane of the images' x and y size, filled by the estimate when
    // `filled` is false.
    void UseImagePlane(const cFloatImagePtr& plane, bool filled);

    // A plane of the whole stack (its padded sum over z) that an estimated K is estimated
    // from, in place of the original's interior planes: K then describes the whole stack
    // and not the piece of it that this filter restores. The PSF's sum over z is brought to
    // the plane's size round its centre. Null goes back to the original's planes.
    void UseStackPlane(const cFloatImagePtr& plane) { mStackPlane = plane; }

    // The regularisation Apply uses for these images: the fixed value of the noise level, or
    // the estimate. Needs the same transform instance as Apply.
    float ChooseK(const cFloatImagePtr& original, const cFloatImagePtr& psf);
    // The K of the latest Apply; 0 before the first.
    float GetAppliedK() const { return mAppliedK; }

    int32_t GetNoiseLevel() const { return mNoiseLevel; }
    float GetRegularizationFactor() const { return mRegularizationFactor; }
    uint32_t GetFirstPlane() const { return mFirstPlane; }
    uint32_t GetLastPlane() const { return mLastPlane; }
    float GetSpacingX() const { return mSpacing[0]; }
    float GetSpacingY() const { return mSpacing[1]; }
    float GetSpacingZ() const { return mSpacing[2]; }

private:
    float mSpacing[3] = {1.0f, 1.0f, 1.0f};
    float mRegularizationFactor = 0.0f;
    // Without a level of its own an optimization estimates K from the data.
    int32_t mNoiseLevel = 54;
    uint32_t mFirstPlane = 0;
    uint32_t mLastPlane = 0;
    cFloatImagePtr mImageSpectrum;
    bool mImageSpectrumFilled = false;
    cFloatImagePtr mImagePlane;
    bool mImagePlaneFilled = false;
    cFloatImagePtr mStackPlane;
    float mAppliedK = 0.0f;
};

using cInverseFilterOptimizationPtr = cCountedPtr<cInverseFilterOptimization>;

} // namespace Ovidane
