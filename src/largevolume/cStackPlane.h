#pragma once
#include <cstdint>
#include <functional>
#include <limits>

#include "image/cOvdImage.h"
#include "largevolume/cProcessingAction.h"

namespace Ovidane {

// One pass over a stack that sums it over z, slice after slice in ascending order, after
// each slice has been corrected as the cut corrects the subvolumes it takes from that slice.
// What it gathers describes the stack as the restorations receive it, whatever the cut: the
// plane (sum over z), the smallest value and the sum of all values.
class cStackPlane : public cProcessingAction {
public:
    // Brings slice z of the stack to what the subvolumes hold of it; may replace the image.
    using cSliceCorrection = std::function<void(cFloatImagePtr& slice, uint32_t z)>;

    cStackPlane(uint32_t width, uint32_t height, cSliceCorrection correction);

    // Corrects the slice in place (the pass writes nothing) and adds it to the plane.
    int Process(cFloatImagePtr& image, uint32_t z) override;
    int Finish() override { return 0; }

    const cFloatImagePtr& GetPlane() const { return mPlane; }
    float GetMinimum() const { return mMinimum; }
    double GetSum() const { return mSum; }

private:
    cFloatImagePtr mPlane;
    cSliceCorrection mCorrection;
    float mMinimum = std::numeric_limits<float>::infinity();
    double mSum = 0.0;
};

} // namespace Ovidane
