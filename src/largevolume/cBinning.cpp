#include "largevolume/cBinning.h"

#include <algorithm>

#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {
float PixelCount(const cFloatImagePtr& image) {
    return static_cast<float>(uint64_t{image->GetSizeX()} * image->GetSizeY());
}
} // namespace

cBinning::cBinning(uint32_t binX, uint32_t binY, uint32_t width, uint32_t height, uint32_t depth,
                   const std::string& fileName, bool writing)
    : cProcessingAction("cBinning"), mBinX(std::max(binX, 1u)),
      mBinY(std::max(binY, 1u)), mFullSize{width, height, depth}, mFileName(fileName),
      mWriting(writing) {
    Guard([&] {
        // Writing shrinks W by H slices; reading brings W/bx by H/by slices back to W by H.
        const cImageDimensions binned{width / mBinX, height / mBinY, depth};
        mResultSize = writing ? binned : mFullSize;
        if (writing) {
            mWriter = new cUnmanagedRawFileWriter(fileName);
            mWriter->Open();
        } else {
            mReader = new cUnmanagedRawFileReader(fileName, width, height, depth);
            mReader->Open();
        }
        if (!Bins())
            return;
        // The resampling's work images: x pass (result x by source y), y pass (result x
        // and y by source depth).
        const cImageDimensions source = writing ? mFullSize : binned;
        mResult = new cOvdImage<float>(mResultSize, Contiguous3D, GetObjectName());
        mFirstWork = new cOvdImage<float>(cImageDimensions{mResultSize.x, source.y, 1},
                                          Contiguous3D, GetObjectName());
        mSecondWork = new cOvdImage<float>(cImageDimensions{mResultSize.x, mResultSize.y, depth},
                                           Contiguous3D, GetObjectName());
    });
}

int cBinning::Process(cFloatImagePtr& image, uint32_t z) {
    return Guard([&] {
        if (!Bins())
            return 0;
        if (mWriting)
            Shrink(image);
        else
            Restore(image, z);
        return 0;
    });
}

void cBinning::Resample(const cFloatImagePtr& in) {
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    // The resampling keeps the mean level; the factor turns that into a sum over the
    // pixels replaced (shrinking) or spreads a sum over more pixels (growing).
    math->InterpolateBilinear(in, mResult, mFirstWork, mSecondWork);
    math->MultiplyImageByConstant(mResult, PixelCount(in) / PixelCount(mResult), mResult);
}

void cBinning::PrepareRatioImages(const cImageDimensions& slice) {
    const cImageDimensions plane{slice.x, slice.y, 1};
    if (mRatio && mRatio->GetDimensions() == plane)
        return;
    mRatio = new cOvdImage<float>(plane, Contiguous3D, GetObjectName());
    if (!mWriting)
        return;
    mDenominator = new cOvdImage<float>(plane, Contiguous3D, GetObjectName());
    mUpsampleWork = new cOvdImage<float>(cImageDimensions{plane.x, mResult->GetSizeY(), 1},
                                         Contiguous3D, GetObjectName());
}

void cBinning::Shrink(cFloatImagePtr& image) {
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    Resample(image);

    // a: the binned slice back at full size, scaled to mean 1.
    PrepareRatioImages(image->GetDimensions());
    const cFloatImagePtr& a = mRatio;
    const cFloatImagePtr& b = mDenominator;
    math->InterpolateBilinear(mResult, a, mUpsampleWork, b);
    const double pixels = PixelCount(image);
    const double meanImage = math->SumImage(image) / pixels;
    const double meanBinned = math->SumImage(a) / pixels;
    if (meanBinned != 0.0) {
        math->MultiplyImageByConstant(a, static_cast<float>(1.0 / meanBinned), a);
        math->SquareImage(a, b);
        math->AddImageByConstant(b, 0.01f, b);
        math->DivideImage(a, b, b); // a / (a^2 + 0.01)
        math->MultiplyImage(image, b, a);
        if (meanImage != 0.0)
            math->MultiplyImageByConstant(a, static_cast<float>(1.0 / meanImage), a);
    } else {
        // A binned slice of mean 0 comes from a slice of zeros: there is no detail to keep.
        math->SetImageToConstant(a, 0.0f);
    }

    if (!mWriter) {
        // A pass after Finish writes the map anew from the file's start.
        mWriter = new cUnmanagedRawFileWriter(mFileName);
        mWriter->Open();
    }
    // Slices come in file order, so appending puts this one at its slice of the map.
    mWriter->Write(a);
    mTransferFailed = mTransferFailed || !mWriter->GetLastError().empty();
    image = mResult;
}

void cBinning::Restore(cFloatImagePtr& image, uint32_t z) {
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    Resample(image);

    PrepareRatioImages(mResult->GetDimensions());
    if (!mReader) {
        mReader = new cUnmanagedRawFileReader(mFileName, mFullSize.x, mFullSize.y, mFullSize.z);
        mReader->Open();
    }
    const uint32_t x1 = mResult->GetSizeX() - 1;
    const uint32_t y1 = mResult->GetSizeY() - 1;
    if (mReader->ReadRegionFloat(mRatio, 0, 0, z, x1, y1, z))
        math->MultiplyImage(mResult, mRatio, mResult);
    else
        mTransferFailed = true; // the slice keeps its smooth, restored intensities
    image = mResult;
}

int cBinning::Finish() {
    return Guard([&] {
        if (mWriter && !mWriter->Close())
            mTransferFailed = true;
        if (mReader)
            mReader->Close();
        mWriter = nullptr;
        mReader = nullptr;
        const bool failed = mTransferFailed;
        mTransferFailed = false;
        if (!failed)
            return 0;
        return mWriting ? 5 : 1;
    });
}

} // namespace Ovidane
