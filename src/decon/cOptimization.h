#pragma once
#include <cstdint>

#include "core/cDeconOperation.h"
#include "core/cImageDimensions.h"
#include "decon/cAcceleration.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// One step of a restoration: the framework calls Apply once per pass, with the object
// estimate, the original image and the PSF.
class cOptimization : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cOptimization() override = default;

    virtual void SetAcceleration(const cAccelerationPtr& acceleration) = 0;
    // Spacing and regularisation matter only to filters that use them; the others keep the
    // empty defaults.
    virtual void SetSpacing(float x, float y, float z) {
        (void)x;
        (void)y;
        (void)z;
    }
    virtual void SetRegularizationFactor(float value) { (void)value; }
    // The acceleration that the framework advances at the head of every pass, or an empty
    // pointer for none.
    virtual cAccelerationPtr GetAcceleration() = 0;
    // Called once before the first pass, by the algorithm.
    virtual void Initialize() = 0;
    virtual void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) = 0;
    // Hands out the PSF as the optimization currently sees it. A method that does not change
    // the PSF leaves `psf` as it is.
    virtual void RetrievePsf(cFloatImagePtr& psf) { (void)psf; }
    // True for a method that only ever reads the PSF it is handed (which may then be one
    // that others share).
    virtual bool OnlyReadsPsf() const { return false; }

    // Sub-pixel factors: how many restored pixels make one measured pixel in x and y, and in
    // z. 1 means the object is restored on the measured grid.
    void SetSubPixelFactors(uint32_t xy, uint32_t z) {
        mSubPixelXY = xy;
        mSubPixelZ = z;
    }
    uint32_t GetSubPixelXYFactor() const { return mSubPixelXY; }
    uint32_t GetSubPixelZFactor() const { return mSubPixelZ; }

    void SetDimensions(const cImageDimensions& size) { mDimensions = size; }
    const cImageDimensions& GetDimensions() const { return mDimensions; }

protected:
    uint32_t mSubPixelXY = 1;
    uint32_t mSubPixelZ = 1;
    cImageDimensions mDimensions{1, 1, 1};
    // Two working images that a method may keep from pass to pass; empty until it makes them.
    cFloatImagePtr mWorkImage;
    cFloatImagePtr mSecondWorkImage;
};

using cOptimizationPtr = cCountedPtr<cOptimization>;

} // namespace Ovidane
