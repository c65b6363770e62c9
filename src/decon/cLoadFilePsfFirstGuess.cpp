#include "decon/cLoadFilePsfFirstGuess.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/cException.h"
#include "image/MemoryStatus.h"
#include "io/cUnmanagedRawFileReader.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

// Length of an axis of M samples at spacing q once resampled to spacing v. A coarser grid
// rounds up so that the whole PSF is kept; a finer one rounds down so that no sample is
// extrapolated past the PSF's last one. In double, so that a length no image can have is
// seen as such instead of wrapping.
double ResampledLength(uint32_t M, float q, float v) {
    const float length = static_cast<float>(M) * q / v;
    if (v > q)
        return std::ceil(double(length));
    if (v < q)
        return std::trunc(double(length));
    return M;
}

bool SameSpacing(const float a[3], const float b[3]) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}

// Where an axis of M samples lands on an axis of T, centres matched: the first sample
// taken from the source, the first one written in the target, and how many.
struct cAxisSpan {
    uint32_t from = 0, to = 0, count = 0;
};

cAxisSpan CentredSpan(uint32_t M, uint32_t T) {
    if (T > M)
        return {0, (T - M) >> 1, M};
    if (T < M)
        return {(M - T) >> 1, 0, T};
    return {0, 0, M};
}

} // namespace

cLoadFilePsfFirstGuess::cLoadFilePsfFirstGuess(const cImageDimensions& imageSize,
                                               float imageSpacingX, float imageSpacingY,
                                               float imageSpacingZ, const cImageDimensions& psfSize,
                                               float psfSpacingX, float psfSpacingY,
                                               float psfSpacingZ)
    : mImageSize(imageSize), mImageSpacing{imageSpacingX, imageSpacingY, imageSpacingZ},
      mPsfSize(psfSize), mPsfSpacing{psfSpacingX, psfSpacingY, psfSpacingZ} {
    SetObjectName("cLoadFilePsfFirstGuess");
}

void cLoadFilePsfFirstGuess::Apply(cFloatImagePtr& psf, cFloatImagePtr& /*original*/) {
    Guard([&] {
        if (mFileName.empty())
            Fail("Empty PSF File Name in Apply", OVD_ERR_PARAMETER);
        if (mPsfSize.Voxels() == 0 || mImageSize.Voxels() == 0)
            Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);

        // A file that can't be opened or holds fewer pixels than its stated size is refused:
        // a PSF with a part of it missing would restore every image wrongly without a sign.
        cFloatImagePtr measured(new cOvdImage<float>(mPsfSize, GetObjectName()));
        {
            cUnmanagedRawFileReader reader(mFileName);
            if (!reader.Open())
                Fail("Unable to open PSF File in Apply", OVD_ERR_PARAMETER);
            if (!reader.Read(measured))
                Fail("PSF File too short in Apply", OVD_ERR_PARAMETER);
            reader.Close();
        }

        cFloatImagePtr onGrid;
        ResampleToImageGrid(measured, onGrid);

        if (!psf)
            psf = cFloatImagePtr(new cOvdImage<float>(mImageSize, GetObjectName()));
        if (!mWork || mWork->GetDimensions() != mImageSize)
            mWork = cFloatImagePtr(new cOvdImage<float>(mImageSize, GetObjectName()));
        cImageMathManager::Instance().GetImageMath()->FFTShift(onGrid, mWork, psf);
    });
}

double cLoadFilePsfFirstGuess::ResamplingBytes(const cImageDimensions& psfSize,
                                               const float psfSpacing[3],
                                               const float imageSpacing[3], bool onePlane) {
    const double source = double(psfSize.x) * psfSize.y * psfSize.z;
    if (SameSpacing(psfSpacing, imageSpacing))
        return source * sizeof(float);
    const double x = ResampledLength(psfSize.x, psfSpacing[0], imageSpacing[0]);
    const double y = ResampledLength(psfSize.y, psfSpacing[1], imageSpacing[1]);
    const double z = onePlane ? 1.0 : ResampledLength(psfSize.z, psfSpacing[2], imageSpacing[2]);
    // An axis longer than an image's index can count is beyond any budget.
    if (std::max({x, y, z}) > double(UINT32_MAX))
        return HUGE_VAL;
    const double rows = x * psfSize.y, planes = x * y * psfSize.z, resampled = x * y * z;
    return (source + rows + planes + resampled) * sizeof(float);
}

void cLoadFilePsfFirstGuess::ResampleToImageGrid(const cFloatImagePtr& source,
                                                 cFloatImagePtr& destination) {
    Guard([&] {
        if (!source)
            Fail("NULL input image in ResampleToImageGrid", OVD_ERR_PARAMETER);
        const bool sameSpacing = SameSpacing(mPsfSpacing, mImageSpacing);
        if (sameSpacing && source->GetDimensions() == mImageSize) {
            destination = source;
            return;
        }

        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        cFloatImagePtr resampled = source;
        if (!sameSpacing) {
            const cImageDimensions M = source->GetDimensions();
            // The run has checked this against its budget; a direct caller gets the machine's
            // memory as the limit, so that no spacing makes it allocate without end.
            const double bytes = ResamplingBytes(M, mPsfSpacing, mImageSpacing, mImageSize.z == 1);
            if (!(bytes <= double(GetTotalPhysicalMemoryMB()) * 1048576.0))
                Fail("PSF too large once resampled in ResampleToImageGrid", OVD_ERR_MEMORY);
            // A single-plane image takes the PSF's planes summed into one.
            const cImageDimensions size{
                uint32_t(ResampledLength(M.x, mPsfSpacing[0], mImageSpacing[0])),
                uint32_t(ResampledLength(M.y, mPsfSpacing[1], mImageSpacing[1])),
                mImageSize.z == 1
                    ? 1u
                    : uint32_t(ResampledLength(M.z, mPsfSpacing[2], mImageSpacing[2]))};
            resampled = cFloatImagePtr(new cOvdImage<float>(size, GetObjectName()));
            cFloatImagePtr rows(new cOvdImage<float>({size.x, M.y, 1}, GetObjectName()));
            cFloatImagePtr planes(new cOvdImage<float>({size.x, size.y, M.z}, GetObjectName()));
            math->InterpolateBilinear(source, resampled, rows, planes);
        }

        // Cut or pad round the centre; the rim around a smaller PSF is bridged from its
        // edges across the wrap-around, so that the PSF has no step at its border.
        const cImageDimensions M = resampled->GetDimensions();
        const cAxisSpan x = CentredSpan(M.x, mImageSize.x);
        const cAxisSpan y = CentredSpan(M.y, mImageSize.y);
        const cAxisSpan z = CentredSpan(M.z, mImageSize.z);
        const cImageBox from{x.from,
                             y.from,
                             z.from,
                             x.from + x.count - 1,
                             y.from + y.count - 1,
                             z.from + z.count - 1};
        const cImageBox to{
            x.to, y.to, z.to, x.to + x.count - 1, y.to + y.count - 1, z.to + z.count - 1};
        destination = cFloatImagePtr(new cOvdImage<float>(mImageSize, GetObjectName()));
        math->SetImageToConstant(destination, 0.0f);
        math->CopyRectangularRoi(resampled, destination, from, to);
        math->InterpolateRoi(destination, to, 1);
    });
}

} // namespace Ovidane
