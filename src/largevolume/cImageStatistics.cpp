#include "largevolume/cImageStatistics.h"

#include <vector>

#include "core/cMessageSink.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cImageStatistics::cImageStatistics(uint32_t width, uint32_t height, uint32_t depth)
    : cProcessingAction("cImageStatistics"), mDimensions{width, height, depth} {
    Guard([&] {
        // A stack without slices has nothing to profile; Finish then reports that.
        if (depth == 0)
            return;
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        for (cFloatImagePtr* profile :
             {&mAverageProfile, &mMaximumProfile, &mMinimumProfile, &mCorrectionProfile}) {
            *profile =
                new cOvdImage<float>(cImageDimensions{1, 1, depth}, Contiguous3D, GetObjectName());
            math->SetImageToConstant(*profile, 0.0f);
        }
    });
}

cImageStatistics::~cImageStatistics() {
    cMessageSink::Stream() << "Ich der Destructinator!" << std::endl;
}

int cImageStatistics::Process(cFloatImagePtr& image, uint32_t z) {
    return Guard([&] {
        if (!image || z >= mDimensions.z || !mAverageProfile)
            return 1;
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        *mAverageProfile->GetPixelPointer(0, 0, z) = math->AverageImage(image);
        *mMinimumProfile->GetPixelPointer(0, 0, z) = math->FindMinimumValue(image);
        *mMaximumProfile->GetPixelPointer(0, 0, z) = math->FindMaximumValue(image);
        return 0;
    });
}

int cImageStatistics::Finish() {
    return Guard([&] {
        if (!mAverageProfile)
            return 1;
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        // Extremes of the slice extremes are exact; the mean is a mean of slice means,
        // which equals the stack's mean since all slices have one size.
        mMaximum = math->FindMaximumValue(mMaximumProfile);
        mMinimum = math->FindMinimumValue(mMinimumProfile);
        mMean = math->AverageImage(mAverageProfile);
        return CalculateIntensityCorrection();
    });
}

int cImageStatistics::CalculateIntensityCorrection() {
    return Guard([&] {
        if (!mAverageProfile || !mCorrectionProfile)
            return 1;
        const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const uint32_t d = mAverageProfile->GetSizeZ();
        const cFloatImagePtr leveled(
            new cOvdImage<float>(mAverageProfile->GetDimensions(), Contiguous3D, GetObjectName()));
        math->CopyImage(mAverageProfile, leveled);

        if (d >= 4) {
            // Each entry is set from its neighbours along z, with rules that differ at the
            // ends; no image operation expresses that, and the profile has one value per
            // slice, so the few values are worked on directly. Sums in double, each stored
            // value in single precision, as a profile holds it.
            std::vector<float> p(d), t(d);
            for (uint32_t i = 0; i < d; ++i)
                p[i] = t[i] = *mAverageProfile->GetPixelPointer(0, 0, i);
            const auto outlier = [](double value, double reference) {
                return value > 1.05 * reference || value < 0.95 * reference;
            };
            // An end slice far from the mean of its three neighbours takes that mean.
            const double first = (double(p[2]) + p[1] + p[3]) / 3.0;
            if (outlier(p[0], first))
                t[0] = static_cast<float>(first);
            const double last = (double(p[d - 3]) + p[d - 2] + p[d - 4]) / 3.0;
            if (outlier(p[d - 1], last))
                t[d - 1] = static_cast<float>(last);
            // The slices next to the ends lean on the (possibly replaced) end values; for
            // four slices the second of these sees the first one's new value.
            t[1] = static_cast<float>(0.25 * (2.0 * t[1] + t[0] + t[2]));
            t[d - 2] = static_cast<float>(0.25 * (2.0 * t[d - 2] + t[d - 3] + t[d - 1]));
            // Inner slices: 1, 2, 1 over the measured means. Slice d - 3 keeps its own.
            for (uint32_t i = 2; i + 4 <= d; ++i)
                t[i] = static_cast<float>(0.25 * (double(p[i - 1]) + 2.0 * p[i] + p[i + 1]));
            for (uint32_t i = 0; i < d; ++i)
                *leveled->GetPixelPointer(0, 0, i) = t[i];
        }
        math->DivideImage(leveled, mAverageProfile, mCorrectionProfile);
        return 0;
    });
}

} // namespace Ovidane
