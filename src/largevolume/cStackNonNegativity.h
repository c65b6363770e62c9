#pragma once
#include <cstdint>
#include <vector>

#include "core/cOvdObject.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The inverse filter's non-negativity step (cImageNonNegativityLinearCompressionConstraint)
// for a whole stack that is made a slice at a time, so that one pedestal and one scale hold
// for every pixel, however the stack was cut for its restoration. With more than the
// tolerated share of negative pixels, the stack is raised by a pedestal t, clipped at 0 and
// scaled by S / (S - t N), S the sum of the stack as the restoration received it and N its
// pixel count. t is searched as the constraint searches it: from nine tenths of the
// smallest value up by tenths, until the tolerated share of pixels lies below it or it
// passes -1.
//
// Use: every slice to FirstLook; if NeedsPedestal, every slice again to SecondLook (which
// counts the pixels below each step of the search, all steps at once); then Apply to each
// slice as it is written.
class cStackNonNegativity : public cOvdObject {
public:
    // originalSum: S; pixels: N.
    cStackNonNegativity(float originalSum, float toleratedShare, double pixels);

    void FirstLook(const cFloatImagePtr& slice);
    // After the first look: whether more than the tolerated share of pixels is negative.
    // Fails for a stack whose smallest value is not finite.
    bool NeedsPedestal();
    void SecondLook(const cFloatImagePtr& slice);
    // Raises, clips and scales a slice in place; changes nothing when no pedestal is needed.
    void Apply(const cFloatImagePtr& slice);

    // The pedestal and the scale; 0 and 1 when nothing is changed. Valid after the second
    // look, or after a first look that needs no pedestal.
    double GetPedestal();
    double GetScale();

private:
    void Decide();

    float mOriginalSum;
    float mToleratedShare;
    double mPixels;
    float mMinimum;
    uint64_t mNegative = 0;
    std::vector<double> mSteps;
    std::vector<float> mLimits;
    std::vector<uint64_t> mCounts;
    bool mNeeded = false;
    bool mDecided = false;
    double mPedestal = 0.0;
    double mScale = 1.0;
};

} // namespace Ovidane
