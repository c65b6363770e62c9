#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"

#include <algorithm>
#include <cmath>
#include <typeinfo>

#include "core/cCountedArray.h"
#include "core/cException.h"
#include "decon/cPsfCache.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

// 2π as the PSF model takes it, in single precision.
constexpr float kTwoPi = 6.2831854820251465f;
// Below this aperture half-angle (25 degrees) the paraxial defocus phase serves; above it
// a polynomial fit in the half-angle stands in for the high-aperture one.
constexpr float kParaxialHalfAngle = 0.4363323450088501f;
// 2π·0.63, the paraxial defocus factor of the model.
constexpr float kParaxialDefocusFactor = 3.958406925201416f;
// Wavelengths from this value up are given in nanometres; no emission wavelength reaches
// 3 µm, and no wavelength in nanometres lies below it.
constexpr float kNanometreThreshold = 3.0f;
// Pixels below this fraction of the central value are numerical noise of the pupil sum.
constexpr float kThresholdFraction = 1e-5f;

} // namespace

cTheoreticalPsfFirstGuessWithSphericalAberration::cTheoreticalPsfFirstGuessWithSphericalAberration(
    float spacingX, float spacingY, float spacingZ, const cImageDimensions& size,
    float numericalAperture, float refractiveIndex, float lambda, float sphericalAberration,
    float axialScale, int modality) {
    SetObjectName("cTheoreticalPsfFirstGuessWithSphericalAberration");
    mSphericalAberration = sphericalAberration;
    mAxialScale = axialScale;
    mModality = modality;

    // The checks run in a fixed order and the first failure ends the constructor: the fields
    // from there on keep their start values. Comparisons are written so that a NaN fails.
    if (!(refractiveIndex > 0.0f))
        return;
    mRefractiveIndex = refractiveIndex;
    if (!(lambda > 0.0f))
        return;
    mLambda = lambda >= kNanometreThreshold ? lambda / 1000.0f : lambda;
    if (!(numericalAperture > 0.0f && numericalAperture <= refractiveIndex))
        return;
    mNumericalAperture = numericalAperture;
    if (size.x == 0 || size.y == 0 || size.z == 0)
        return;
    mSize = size;
    if (!(spacingX > 0.0f && spacingY > 0.0f && spacingZ > 0.0f))
        return;
    mSpacingX = spacingX;
    mSpacingY = spacingY;
    mSpacingZ = spacingZ;
    mComplete = true;
}

unsigned cTheoreticalPsfFirstGuessWithSphericalAberration::GetOversampling() const {
    // The lateral planes are computed at no more than the Nyquist spacing of the pupil's
    // band limit 2·NA/λ, but at most four sub-pixels per pixel: beyond that the PSF is so
    // undersampled by the image grid that finer planes change little.
    const float nyquist = 1.0f / (2.0f * (2.0f * mNumericalAperture / mLambda));
    const float steps = std::trunc(std::max(mSpacingX, mSpacingY) / nyquist);
    if (steps >= 3.0f)
        return 4;
    if (!(steps >= 0.0f)) // not a number: an object whose constructor gave up
        return 1;
    return static_cast<unsigned>(steps) + 1;
}

void cTheoreticalPsfFirstGuessWithSphericalAberration::Apply(cFloatImagePtr& psf,
                                                             cFloatImagePtr& /*original*/) {
    Guard([&] {
        // An object whose constructor gave up has no optics to compute with; a PSF made
        // from start values would be silently wrong, so it is refused here. So is an axial
        // scale that isn't positive, which would put every plane at an infinite depth.
        if (!mComplete || !(mAxialScale > 0.0f))
            Fail("Invalid PSF Parameters in Apply", OVD_ERR_PARAMETER);
        if (!psf)
            psf = cFloatImagePtr(new cOvdImage<float>(mSize, GetObjectName()));
        Generate(psf);
    });
}

bool cTheoreticalPsfFirstGuessWithSphericalAberration::TakePrepared(cFloatImagePtr& psf,
                                                                    bool readOnly) {
    if (!readOnly || !Kept())
        return false;
    const cFloatImagePtr lent = cPsfCache::LendPrepared(KeyFor(mSize));
    if (!lent)
        return false;
    psf = lent;
    return true;
}

void cTheoreticalPsfFirstGuessWithSphericalAberration::KeepPrepared(const cFloatImagePtr& psf,
                                                                    bool readOnly) {
    if (readOnly && Kept())
        cPsfCache::KeepPrepared(KeyFor(mSize), psf);
}

cPsfCache::cKey
cTheoreticalPsfFirstGuessWithSphericalAberration::KeyFor(const cImageDimensions& size) const {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    return {size,
            mSpacingX,
            mSpacingY,
            mSpacingZ,
            mAxialScale,
            mNumericalAperture,
            mRefractiveIndex,
            mLambda,
            mSphericalAberration,
            mModality,
            typeid(*math.Get())};
}

void cTheoreticalPsfFirstGuessWithSphericalAberration::Generate(const cFloatImagePtr& psf) const {
    const cImageDimensions size = psf->GetDimensions();
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    const cPsfCache::cKey key = KeyFor(size);
    if (cPsfCache::Fetch(key, psf))
        return;
    const uint32_t NX = size.x, NY = size.y, NZ = size.z;
    const float sx = mSpacingX, sy = mSpacingY;
    const float NA = mNumericalAperture, n = mRefractiveIndex, lambda = mLambda;

    // Plane step, stretched by the axial scale, and the aperture half-angle.
    const float dz = mSpacingZ / mAxialScale;
    const float alpha = std::asin(NA / n);

    // The oversampled plane: S by S sub-pixels per image pixel.
    const uint32_t S = GetOversampling();
    const uint32_t W = NX * S, H = NY * S;

    // The radial table runs along the physically longer axis, so that it reaches every
    // pixel of the plane; its sample step is that axis's spacing over S.
    float delta = sy;
    uint32_t N = NY;
    float L = sy * static_cast<float>(NY);
    if (sy * static_cast<float>(NY) < sx * static_cast<float>(NX)) {
        delta = sx;
        N = NX;
        L = sx * static_cast<float>(NX);
    }

    // R radial samples reach 1.5 times the field's long side, past its corners. The pupil
    // is sampled at half the field's frequency step, out to its edge NA/λ and a few
    // samples beyond, which the phase sets to 0. A table needs at least a sample and its
    // neighbour for the interpolation, which only a one-pixel field would lack.
    const uint32_t R = std::max<uint32_t>((N * S * 3) >> 1, 2);
    const float frequencyStep = 1.0f / L;
    const uint32_t P =
        2 * static_cast<uint32_t>(std::trunc((NA / lambda) / frequencyStep + 0.5f)) + 4;
    const float dRho = frequencyStep * 0.5f;

    // j·J0(2π·ρj·ri) for radius ri = i·Δ/S and frequency ρj = j·dρ: the Bessel function is
    // evaluated once per entry here and shared by every plane.
    const double besselStep = 6.2831854820251465 / (2.0 * static_cast<double>(N) * S);
    const cImageDimensions tableSize{R, 1, P};
    cFloatImagePtr table;
    if (mBesselTable && mBesselTable->values && mBesselTable->step == besselStep &&
        mBesselTable->values->GetDimensions() == tableSize) {
        table = mBesselTable->values;
    } else {
        table = cFloatImagePtr(new cOvdImage<float>(tableSize, Contiguous3D, GetObjectName()));
        math->GenerateBesselArray(table, besselStep);
        if (mBesselTable) {
            mBesselTable->values = table;
            mBesselTable->step = besselStep;
        }
    }

    // Where each sub-pixel of the plane's first quadrant falls in the radial table. The
    // rest of the plane is mirrored from this quadrant. The row index is scaled by Δ/sx and
    // the column index by Δ/sy, so the radius is the physical one only when the two lateral
    // spacings are equal, as they are for the cameras and scanners this model serves.
    const uint32_t halfW = W / 2, halfH = H / 2;
    const std::size_t quadrant = std::size_t{halfH + 1} * (halfW + 1);
    cCountedArray<int32_t> indexMap = MakeCountedArray<int32_t>(quadrant);
    cCountedArray<float> fractionMap = MakeCountedArray<float>(quadrant);
    {
        int32_t* index = indexMap->data();
        float* fraction = fractionMap->data();
        const float rowScale = delta / sx, columnScale = delta / sy;
        const int32_t lastIndex = static_cast<int32_t>(R) - 2;
        for (uint32_t y = 0; y <= halfH; ++y) {
            const float a = static_cast<float>(y) * rowScale;
            for (uint32_t x = 0; x <= halfW; ++x, ++index, ++fraction) {
                const float b = static_cast<float>(x) * columnScale;
                const float r = std::sqrt(a * a + b * b);
                const int32_t i = static_cast<int32_t>(r);
                // Past the table's end the last pair of samples is extrapolated from.
                *index = i >= lastIndex + 1 ? lastIndex : i;
                *fraction = r - static_cast<float>(i);
            }
        }
    }

    // Factor of the defocus phase z·u², u the pupil radius relative to its edge.
    float A;
    if (alpha < kParaxialHalfAngle) {
        A = (n * kParaxialDefocusFactor / lambda) * ((NA * NA) / (n * n));
    } else {
        const float alpha2 = alpha * alpha;
        A = (kTwoPi * n / lambda) *
            (1.5842f * alpha2 * alpha - 2.1692f * alpha2 + 1.66f * alpha - 0.3262f);
    }

    // Work space of the kernel: one oversampled plane, the sums along the radius and the
    // phase along the pupil.
    cFloatImagePtr plane(new cOvdImage<float>({W, H, 1}, Contiguous3D, GetObjectName()));
    cCountedArray<float> realSum = MakeCountedArray<float>(R);
    cCountedArray<float> imaginarySum = MakeCountedArray<float>(R);
    cCountedArray<float> intensity = MakeCountedArray<float>(R);
    cCountedArray<float> phaseCosine = MakeCountedArray<float>(P);
    cCountedArray<float> phaseSine = MakeCountedArray<float>(P);
    const float sphericalAberration = mSphericalAberration;
    const int modality = mModality;
    math->GeneratePsfWithSphericalAberrationUsingBessel(
        psf, plane, table, indexMap, fractionMap, realSum, imaginarySum, intensity, phaseCosine,
        phaseSine, size, NA, n, lambda, sphericalAberration, A, dz, dRho, S, modality);

    // Clear the faint ripples of the pupil sum, then scale the whole stack to sum 1.
    const float threshold = *psf->GetPixelPointer(0, 0, 0) * kThresholdFraction;
    math->SubtractImageByConstantAndThreshold(psf, threshold, 0.0f, 1);
    math->NormalizeImage(psf, psf, 0u, NZ - 1, 1.0f);
    if (!mBesselTable)
        cPsfCache::Store(key, psf);
}

} // namespace Ovidane
