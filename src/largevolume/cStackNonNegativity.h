#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "core/cOvdObject.h"
#include "image/cOvdImage.h"
#include "math/cSmallestValues.h"

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
// The search asks of each step whether at least K pixels lie below it, K the fewest pixels
// that make the tolerated share: whether the K-th smallest pixel does. The first look keeps
// the K smallest values it has seen, so that the search needs no second look at the stack.
// Where that would take more than `mostKept` values, the first look keeps none and a second
// look counts the pixels below every step instead. The worker threads share the keeping,
// each with values of its own, as many of them as fit in the room of `mostKept` values; the
// K-th smallest of all they were shown is the same whichever thread saw which pixel.
//
// Use: every slice to FirstLook; if NeedsPedestal and NeedsSecondLook, every slice again to
// SecondLook; then Apply to each slice as it is written.
class cStackNonNegativity : public cOvdObject {
public:
    // Up to 2^21 values kept (K), held in at most 16 MB (2K floats for each thread that
    // keeps, all together): every stack up to 100 million pixels at the constraint's 2
    // percent.
    static constexpr uint64_t kMostKept = uint64_t{1} << 21;

    // originalSum: S; pixels: N.
    cStackNonNegativity(float originalSum, float toleratedShare, double pixels,
                        uint64_t mostKept = kMostKept);

    void FirstLook(const cFloatImagePtr& slice);
    // After the first look: whether more than the tolerated share of pixels is negative.
    // Fails for a stack whose smallest value is not finite.
    bool NeedsPedestal();
    // After NeedsPedestal: whether the search needs the second look.
    bool NeedsSecondLook() const { return mNeeded && mSmallest.empty(); }
    void SecondLook(const cFloatImagePtr& slice);
    // Raises, clips and scales a slice in place; changes nothing when no pedestal is needed.
    void Apply(const cFloatImagePtr& slice);

    // The pedestal and the scale; 0 and 1 when nothing is changed. Valid after the looks
    // the step needs.
    double GetPedestal();
    double GetScale();

private:
    // Whether the tolerated share of pixels lies below step k, `below` of them counted.
    bool ShareReached(std::size_t k, uint64_t below) const;
    void Decide();

    float mOriginalSum;
    float mToleratedShare;
    double mPixels;
    float mMinimum;
    uint64_t mNegative = 0;
    // The K smallest values of the first look where they are kept, one keeper for each
    // thread that shares the look, and the K-th of them.
    std::vector<std::unique_ptr<cSmallestValues>> mSmallest;
    float mKthSmallest;
    std::vector<double> mSteps;
    std::vector<float> mLimits;
    std::vector<uint64_t> mCounts;
    bool mNeeded = false;
    bool mDecided = false;
    double mPedestal = 0.0;
    double mScale = 1.0;
};

} // namespace Ovidane
