#pragma once
#include <cstdint>

#include "core/cDeconOperation.h"
#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Every ML-EM estimate is held at or above this after each pass: a multiplicative update
// can never lift a pixel that has reached 0.
inline constexpr float kEstimateFloor = 1e-20f;

// Takes each step of an iterative restoration further than the plain update would. It owns
// the working images of the step (the reblurred estimate, the multiplication factor, the
// new estimate), so that the optimization writes its update straight into them and a pass
// allocates nothing of its own.
class cAcceleration : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cAcceleration() override = default;

    // The framework hands over the number of the pass about to run, counted from 0.
    virtual void Apply(int32_t iteration) = 0;
    // The size of the working images; the optimization sets it before it asks for them.
    virtual void SetDimensions(const cImageDimensions& size) { mDimensions = size; }
    virtual int32_t GetCurrentIteration() const = 0;
    virtual cImageDimensions GetDimensions() const { return mDimensions; }

    // The working images, made on first demand with the stored size. A strategy that has no
    // use for one answers an empty pointer or one of its other images.
    virtual cFloatImagePtr GetReblurredImage() = 0;
    virtual cFloatImagePtr GetMultiplicationFactor() = 0;
    virtual cFloatImagePtr GetNewImageEstimate() = 0;

    // True when Apply takes the object as it was before the pass and makes the plain update
    // (object · factor) and the floor itself, folded into its own walk over the images; the
    // optimization then leaves both to it.
    virtual bool MakesPlainUpdate() const { return false; }

    // A slot kept free for a strategy's own use; nothing calls it.
    virtual void Reserved() {}

    // Carries the update that the optimization has just made further.
    virtual void Apply(cFloatImagePtr& object, cFloatImagePtr& original, cFloatImagePtr& psf) = 0;

protected:
    // Until a size is set the working images have none worth making.
    cImageDimensions mDimensions{1, 1, 1};
};

using cAccelerationPtr = cCountedPtr<cAcceleration>;

} // namespace Ovidane
