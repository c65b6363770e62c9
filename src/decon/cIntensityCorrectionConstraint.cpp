#include "decon/cIntensityCorrectionConstraint.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "core/cException.h"
#include "math/HighwayKernels.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cIntensityCorrectionConstraint::cIntensityCorrectionConstraint(cFloatImagePtr curve,
                                                               unsigned firstSlice,
                                                               unsigned lastSlice)
    : cPixelCorrection("cIntensityCorrectionConstraint"), mCurve(std::move(curve)),
      mFirstSlice(firstSlice), mLastSlice(lastSlice) {}

void cIntensityCorrectionConstraint::Apply(cFloatImagePtr& image) {
    if (image.IsNull() || mCurve.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    // The slices of the range that the image holds, as stack slice numbers.
    const uint64_t depth = image->GetSizeZ();
    const uint64_t first = mFirstSlice;
    const uint64_t last = std::min<uint64_t>(mLastSlice, first + depth - 1);
    if (depth == 0 || first > last)
        return;
    if (last >= mCurve->GetSizeZ())
        Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
    Guard([&] {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        for (uint64_t z = first; z <= last; ++z) {
            // One factor per slice, read from the curve; the slice itself is multiplied by
            // the image math.
            const float factor = *mCurve->GetPixelPointer(0, 0, static_cast<uint32_t>(z));
            const unsigned slice = static_cast<unsigned>(z - first);
            math->MultiplyImageSliceByConstant(image, factor, slice);
        }
    });
}

void cIntensityCorrectionConstraint::CorrectLine(float* pixels, std::size_t count,
                                                 uint32_t slice) const {
    const uint64_t z = uint64_t{mFirstSlice} + slice;
    if (z > mLastSlice)
        return;
    if (mCurve.IsNull() || z >= mCurve->GetSizeZ())
        Fail("Invalid Dimensions in CorrectLine", OVD_ERR_PARAMETER);
    const float factor = *mCurve->GetPixelPointer(0, 0, static_cast<uint32_t>(z));
    HighwayKernels::Unary(HighwayKernels::eUnary::MultiplyConstant, pixels, pixels, count,
                          {factor});
}

} // namespace Ovidane
