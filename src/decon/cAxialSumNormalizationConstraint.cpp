#include "decon/cAxialSumNormalizationConstraint.h"

#include <cstdint>

#include "core/cException.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cAxialSumNormalizationConstraint::cAxialSumNormalizationConstraint()
    : cConstraint("cAxialSumNormalizationConstraint") {}

void cAxialSumNormalizationConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const int64_t depth = image->GetSizeZ();
        const double centre = depth > 0 ? math->SumImageSlice(image, 0u) : 0.0;

        // One step outwards: a slice no brighter than the previous one (or empty) becomes
        // the new reference; a brighter one is scaled down to the reference, which stays.
        double previous = centre;
        auto step = [&](int64_t z) {
            const unsigned slice = static_cast<unsigned>(z);
            const double sum = math->SumImageSlice(image, slice);
            if (sum <= previous || sum == 0.0)
                previous = sum;
            else
                math->MultiplyImageSliceByConstant(image, static_cast<float>(previous / sum),
                                                   slice);
        };

        // Upwards through the lower half of wrap-around z.
        for (int64_t z = 1; z <= depth / 2 - 1; ++z)
            step(z);
        // Downwards from the last slice, the negative distances, to the middle. Slice 0 is
        // the centre and stays out of both passes, which also leaves a single plane, its own
        // centre, as it was.
        previous = centre;
        for (int64_t z = depth - 1; z >= depth / 2 && z >= 1; --z)
            step(z);
    });
}

} // namespace Ovidane
