#include "decon/cMlemNonBlindMethodOptimization.h"

#include <ostream>

#include "core/cException.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"
#include "platform/Platform.h"

namespace Ovidane {
namespace {

// Writes the seconds since the last mark and the step's text to a stream, if there is one;
// each step of a pass is timed on its own.
class cStepTimer {
public:
    explicit cStepTimer(std::ostream* stream)
        : mStream(stream), mStart(stream ? Platform::ProcessClockMilliseconds() : 0) {}
    void Done(const char* text) {
        if (!mStream)
            return;
        const int64_t now = Platform::ProcessClockMilliseconds();
        *mStream << "\t\t\t" << static_cast<double>(now - mStart) / 1000.0 << text << '\n';
        mStart = now;
    }

private:
    std::ostream* mStream;
    int64_t mStart;
};

} // namespace

cMlemNonBlindMethodOptimization::cMlemNonBlindMethodOptimization() {
    SetObjectName("cMlemNonBlindMethodOptimization");
}

void cMlemNonBlindMethodOptimization::Initialize() {
    Guard([&] {
        SetObjectName("cMlemNonBlindMethodOptimization");
        if (!UsesSubPixels())
            return;
        // One measured pixel is the mean of n × n restored ones; the box sits at the origin,
        // as every kernel of a circular convolution does.
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        mKernel = new cOvdImage<float>(mDimensions, GetObjectName());
        math->SetImageToConstant(mKernel, 0.0f);
        const float n = static_cast<float>(mSubPixelXY);
        math->SetRoiToConstant(mKernel, cImageBox{0, 0, 0, mSubPixelXY - 1, mSubPixelXY - 1, 0},
                               1.0f / (n * n));
    });
}

void cMlemNonBlindMethodOptimization::CheckInputs(const cFloatImagePtr& object,
                                                  const cFloatImagePtr& original,
                                                  const cFloatImagePtr& psf) {
    if (object.IsNull() || original.IsNull() || psf.IsNull())
        Fail("NULL input image in Apply", OVD_ERR_PARAMETER);
    if (!(object->GetDimensions() == original->GetDimensions()) ||
        !(psf->GetDimensions() == original->GetDimensions()))
        Fail("Invalid Dimensions in Apply", OVD_ERR_PARAMETER);
    if (mAcceleration.IsNull())
        Fail("NULL acceleration in Apply", OVD_ERR_PARAMETER);
    if (UsesSubPixels() && mKernel.IsNull())
        Fail("NULL kernel in Apply", OVD_ERR_PARAMETER);
    mAcceleration->SetDimensions(object->GetDimensions());
}

void cMlemNonBlindMethodOptimization::Update(cFloatImagePtr& object, cFloatImagePtr& original,
                                             cFloatImagePtr& psf, std::ostream* timing) {
    const bool subPixels = UsesSubPixels();
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    cFFTManager& transforms = cFFTManager::Instance();
    cStepTimer timer(timing);

    const cFloatImagePtr& psfTransform = mPsfTransform.Of(psf);
    cFloatImagePtr reblurred = mAcceleration->GetReblurredImage();
    transforms.ConvolveKept(object, psfTransform, reblurred, 2);
    if (subPixels)
        transforms.Convolve(reblurred, mKernel, reblurred, 2);
    timer.Done(" seconds for first Convolution");

    cFloatImagePtr factor = mAcceleration->GetMultiplicationFactor();
    math->DivideImage(original, reblurred, factor);
    if (subPixels)
        math->GenerateGridMask(factor, mSubPixelXY, mSubPixelZ);
    timer.Done(" seconds to Divide");

    transforms.ConvolveKept(factor, psfTransform, factor, 1);
    if (subPixels)
        transforms.Convolve(factor, mKernel, factor, 2);
    timer.Done(" seconds for second Convolution");

    if (!mAcceleration->MakesPlainUpdate()) {
        cFloatImagePtr estimate = mAcceleration->GetNewImageEstimate();
        if (estimate.IsNull())
            estimate = object;
        math->MultiplyImage(object, factor, estimate);
        timer.Done(" seconds to Multiply Image");
    }

    mAcceleration->Apply(object, original, psf);
    timer.Done(" seconds to apply Acceleration");
}

void cMlemNonBlindMethodOptimization::Apply(cFloatImagePtr& object, cFloatImagePtr& original,
                                            cFloatImagePtr& psf) {
    Guard([&] {
        CheckInputs(object, original, psf);
        Update(object, original, psf, &MessageStream());
        // The extrapolation holds its estimate at the floor in its own walk.
        if (!mAcceleration->MakesPlainUpdate()) {
            cStepTimer timer(&MessageStream());
            cImageMathManager::Instance().GetImageMath()->SubtractImageByConstantAndThreshold(
                object, 0.0f, kEstimateFloor, kEstimateFloor, 1);
            timer.Done(" seconds to apply non negativity");
        }
    });
}

} // namespace Ovidane
