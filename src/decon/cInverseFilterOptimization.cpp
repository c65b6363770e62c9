#include "decon/cInverseFilterOptimization.h"

#include <algorithm>
#include <array>
#include <string>

#include "core/DeconKeys.h"
#include "core/cException.h"
#include "decon/cWienerKEstimate.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

// A plane centred at pixel (0, 0), as a PSF is, brought to another size round that centre:
// what both sizes hold is copied quadrant by quadrant, the rest is 0.
cFloatImagePtr Recentred(const cFloatImagePtr& source, const cImageDimensions& size,
                         const std::string& owner) {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    const cFloatImagePtr result(new cOvdImage<float>(size, owner));
    math->SetImageToConstant(result, 0.0f);
    struct cHalf {
        uint32_t from, to, count;
    };
    // Per axis the part at and after the centre, and the part before it, which wraps round.
    const auto halves = [](uint32_t from, uint32_t to) {
        const uint32_t common = std::min(from, to), before = common / 2;
        return std::array<cHalf, 2>{cHalf{0, 0, common - before},
                                    cHalf{from - before, to - before, before}};
    };
    for (const cHalf& x : halves(source->GetSizeX(), size.x))
        for (const cHalf& y : halves(source->GetSizeY(), size.y))
            if (x.count > 0 && y.count > 0)
                math->CopyRectangularRoi(
                    source, result,
                    {x.from, y.from, 0, x.from + x.count - 1, y.from + y.count - 1, 0},
                    {x.to, y.to, 0, x.to + x.count - 1, y.to + y.count - 1, 0});
    return result;
}

} // namespace

void cInverseFilterOptimization::SetSpacing(float x, float y, float z) {
    if (x > 0 && y > 0 && z > 0) {
        mSpacing[0] = x;
        mSpacing[1] = y;
        mSpacing[2] = z;
    }
}

void cInverseFilterOptimization::SetRegularizationFactor(float value) {
    if (value > 0)
        mRegularizationFactor = value;
}

void cInverseFilterOptimization::SetNoiseLevel(int32_t level) {
    if (level >= DEC_FLAG_NOISE_LEVEL_LOW && level <= DEC_FLAG_NOISE_LEVEL_ESTIMATE)
        mNoiseLevel = level;
}

void cInverseFilterOptimization::SetZRange(uint32_t first, uint32_t last) {
    mFirstPlane = first;
    mLastPlane = last;
}

void cInverseFilterOptimization::UseImageSpectrum(const cFloatImagePtr& spectrum, bool filled) {
    mImageSpectrum = spectrum;
    mImageSpectrumFilled = filled && !spectrum.IsNull();
}

void cInverseFilterOptimization::UseImagePlane(const cFloatImagePtr& plane, bool filled) {
    mImagePlane = plane;
    mImagePlaneFilled = filled && !plane.IsNull();
}

float cInverseFilterOptimization::ChooseK(const cFloatImagePtr& original,
                                          const cFloatImagePtr& psf) {
    return Guard([&]() -> float {
        switch (mNoiseLevel) {
        // The fixed classes are a decade apart.
        case DEC_FLAG_NOISE_LEVEL_LOW:
            return 2e-5f;
        case DEC_FLAG_NOISE_LEVEL_MEDIUM:
            return 2e-4f;
        case DEC_FLAG_NOISE_LEVEL_HIGH:
            return 2e-3f;
        case DEC_FLAG_NOISE_LEVEL_OTHER:
            return mRegularizationFactor;
        default:
            break;
        }

        // The estimate works on one plane each, so it costs two-dimensional transforms only:
        // the sum of the interior planes of the image and the sum of all planes of the PSF.
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const cImageDimensions plane{original->GetSizeX(), original->GetSizeY(), 1};
        cFloatImagePtr psfPlane(new cOvdImage<float>(plane, mObjectName));
        math->SumProjection(psf, psfPlane, 1, 0, static_cast<int>(psf->GetSizeZ()) - 1);
        cFloatImagePtr imagePlane;
        if (mStackPlane.IsNull()) {
            const bool kept = !mImagePlane.IsNull() && mImagePlane->GetDimensions() == plane;
            imagePlane =
                kept ? mImagePlane : cFloatImagePtr(new cOvdImage<float>(plane, mObjectName));
            if (!(kept && mImagePlaneFilled))
                math->SumProjection(original, imagePlane, 1, static_cast<int>(mFirstPlane),
                                    static_cast<int>(mLastPlane));
            mImagePlaneFilled = kept;
        } else {
            imagePlane = mStackPlane;
            const cImageDimensions stack = mStackPlane->GetDimensions();
            if (stack.x != plane.x || stack.y != plane.y) {
                psfPlane = Recentred(psfPlane, stack, mObjectName);
                cFFTManager& transforms = cFFTManager::Instance();
                if (transforms.GetInstance(stack).IsNull()) {
                    transforms.AddInstance(stack, 1, 3);
                    transforms.InitializePlans();
                }
            }
        }

        // Restoring on a finer grid than the data calls for more regularisation.
        float factor = mRegularizationFactor;
        const float subPixel = static_cast<float>(mSubPixelXY);
        if (mSubPixelXY > 1)
            factor = factor * 5.0f * subPixel * subPixel;

        cWienerKEstimate estimate(imagePlane, psfPlane, mSpacing[0], mSpacing[1], mSpacing[2]);
        estimate.Estimate();
        // The caller's factor sets a floor under the estimate.
        return std::max(4.0f * estimate.GetValue(), (factor * 0.0001f * 4.0f) / 10.0f);
    });
}

void cInverseFilterOptimization::Apply(cFloatImagePtr& object, cFloatImagePtr& original,
                                       cFloatImagePtr& psf) {
    Guard([&] {
        if (object.IsNull() || original.IsNull() || psf.IsNull())
            Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
        if (!(object->GetDimensions() == original->GetDimensions()) ||
            !(psf->GetDimensions() == original->GetDimensions()))
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
        const float k = ChooseK(original, psf);
        mAppliedK = k;
        cFFTManager& transforms = cFFTManager::Instance();
        if (mImageSpectrum.IsNull()) {
            transforms.WienerFilter(original, psf, object, k);
            return;
        }
        if (!mImageSpectrumFilled) {
            transforms.KeepKernel(original, mImageSpectrum);
            mImageSpectrumFilled = true;
        }
        transforms.WienerFilterKeptImage(mImageSpectrum, psf, object, k);
    });
}

} // namespace Ovidane
