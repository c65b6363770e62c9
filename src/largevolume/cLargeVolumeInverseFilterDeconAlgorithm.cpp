#include "largevolume/cLargeVolumeInverseFilterDeconAlgorithm.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "core/DeconKeys.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "largevolume/SubvolumeFiles.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "largevolume/cImageStatistics.h"
#include "largevolume/cSubvoluming.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
// The object name stays empty: a failure of a subvolume's restoration reaches the search
// with the context of the objects that raised it and nothing of this wrapper.
cLargeVolumeInverseFilterDeconAlgorithm::cLargeVolumeInverseFilterDeconAlgorithm(
    cCountedPtr<cDeconLog> log)
    : mLog(std::move(log)) {
    if (mLog) {
        const cDeconParameter& p = mLog->GetParameters();
        mWidth = p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH);
        mHeight = p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT);
        mDepth = p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH);
    }
}

cLargeVolumeInverseFilterDeconAlgorithm::~cLargeVolumeInverseFilterDeconAlgorithm() {
    try {
        // The algorithm in hand goes first: it may still hold its subvolume's files open.
        mAlgorithm = nullptr;
        CleanUp();
    } catch (...) {
        // A destructor has nowhere to report to; what is left goes with the temporary
        // file generator.
    }
}

int32_t cLargeVolumeInverseFilterDeconAlgorithm::Prepare() {
    return Guard([&]() -> int32_t {
        if (mSubvolumeLogs)
            CleanUp();
        mSubvoluming = new cSubvoluming();
        mSubvoluming->SetLog(mLog);
        mStatistics = new cImageStatistics(uint32_t(mWidth), uint32_t(mHeight), uint32_t(mDepth));
        mSubvoluming->SetStatistics(mStatistics);
        const int32_t code = mSubvoluming->Prepare();
        if (code == 0) {
            mSubvolumeLogs = mSubvoluming->GetSubvolumeLogs();
            PlanSpareMemory();
        }
        return code;
    });
}

// The PSF that the subvolumes share in each evaluation counts among the images of a
// restoration; the spare memory beyond them holds image transforms, one per subvolume.
void cLargeVolumeInverseFilterDeconAlgorithm::PlanSpareMemory() {
    const cImageDimensions size = PaddedSizeOf(mSubvolumeLogs);
    if (size.Voxels() == 0)
        return;
    const cImageDimensions packed{size.x + 2, size.y, size.z};
    const auto imageBytes = int64_t(size.Voxels() * sizeof(float));
    const auto spectrumBytes = int64_t(packed.Voxels() * sizeof(float));
    const std::size_t count = mSubvolumeLogs->size();
    mSharePsf = count > 1;
    const auto kept =
        std::min<int64_t>(int64_t(count), GetSpareRunMemory(imageBytes) / spectrumBytes);
    const cImageDimensions plane{size.x, size.y, 1};
    for (int64_t i = 0; i < kept; ++i) {
        mImageSpectra.push_back(cFloatImagePtr(
            new cOvdImage<float>(packed, Contiguous3D, "cLargeVolumeInverseFilterDeconAlgorithm")));
        mImagePlanes.push_back(
            cFloatImagePtr(new cOvdImage<float>(plane, "cLargeVolumeInverseFilterDeconAlgorithm")));
    }
    mSpectrumFilled.assign(mImageSpectra.size(), false);
    mRawSums.assign(mImageSpectra.size(), 0.0f);
    mBesselTable = new cBesselTable;
}

int32_t cLargeVolumeInverseFilterDeconAlgorithm::Evaluate() {
    return Guard([&]() -> int32_t {
        mResult = 0.0;
        const float aberration = mLog->GetParameters().GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION);
        double sum = 0.0;
        float largestRange = 0.0f;
        if (!mSubvolumeLogs)
            return 0;
        // The PSF of this aberration, made for the first subvolume; gone with the evaluation.
        cCountedPtr<cSharedPsfFirstGuess> psf;
        for (std::size_t i = 0; i < mSubvolumeLogs->size(); ++i) {
            const cCountedPtr<cDeconLog>& log = (*mSubvolumeLogs)[i];
            log->GetParameters().SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, aberration);
            // Replaces the one in hand, which goes only now: at most two exist at a time.
            mAlgorithm = new cInverseFilterDeconAlgorithm(log);
            // Transform plans and memory requests are made once per search: every subvolume
            // of a cut has the same padded size, and the services keep them between runs.
            if (i == 0 && !mMemoryPrepared) {
                mAlgorithm->Initialize();
                mMemoryPrepared = true;
            }
            if (!mWritesResultFiles)
                mAlgorithm->GetFramework()->SetWritesResultFile(false);
            if (auto* theoretical = dynamic_cast<cTheoreticalPsfFirstGuessWithSphericalAberration*>(
                    mAlgorithm->GetPsfFirstGuess().Get()))
                theoretical->UseBesselTable(mBesselTable);
            if (mSharePsf)
                mAlgorithm->SharePsfFirstGuess(psf);
            if (i < mImageSpectra.size()) {
                mAlgorithm->GetOptimization()->UseImageSpectrum(mImageSpectra[i],
                                                                mSpectrumFilled[i]);
                mAlgorithm->GetOptimization()->UseImagePlane(mImagePlanes[i], mSpectrumFilled[i]);
                // With all that the filter takes from the file kept, the file is not read.
                if (mSpectrumFilled[i])
                    mAlgorithm->UseKeptOriginal(mRawSums[i]);
            }
            // No status callback: the search reports once per evaluation itself.
            mAlgorithm->SetUp();
            mAlgorithm->Prepare();
            mAlgorithm->Run();
            if (i < mImageSpectra.size()) {
                mSpectrumFilled[i] = true;
                mRawSums[i] = mAlgorithm->GetRawSum();
            }
            const float range = AccumulateFigureOfMerit(mAlgorithm->GetResultImage(), sum);
            if (range > largestRange)
                largestRange = range;
        }
        mResult = FinishFigureOfMerit(sum, largestRange);
        // A search that compared figures of no numbers would answer an arbitrary aberration.
        if (!std::isfinite(sum))
            Fail("the restored stack holds values that are not finite numbers at the "
                 "spherical aberration " +
                     std::to_string(aberration),
                 OVD_ERR_FOREIGN);
        return 0;
    });
}

float cLargeVolumeInverseFilterDeconAlgorithm::AccumulateFigureOfMerit(const cFloatImagePtr& image,
                                                                       double& sum) {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    float minimum = 0.0f, maximum = 0.0f;
    math->FindMinimumAndMaximumValue(image, minimum, maximum);
    const float range = maximum - minimum;
    if (!(range > 0.0f))
        return 0.0f;
    // The sum of the image scaled to 0..1, without writing the scaled image: two passes over
    // the restored subvolume in place of five. The weight is formed in single precision
    // like the range; the sum stays double.
    sum += math->SumNormalizedImage(image, minimum, maximum) * double(std::pow(range, 2.0f));
    return range;
}

double cLargeVolumeInverseFilterDeconAlgorithm::FinishFigureOfMerit(double sum,
                                                                    float largestRange) {
    if (!(largestRange > 0.0f))
        return 0.0;
    return sum / double(std::pow(largestRange, 2.0f));
}

uint16_t cLargeVolumeInverseFilterDeconAlgorithm::Blend() {
    return Guard([&]() -> uint16_t {
        if (!mWritesResultFiles)
            Fail("Blend: the evaluations kept their results in memory and wrote no files",
                 OVD_ERR_PARAMETER);
        return BlendSubvolumesInto(mLog->GetParameters().GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE),
                                   mLog, mSubvolumeLogs, mStatistics);
    });
}

// The results of the latest evaluation, and the PSF a restoration may have saved beside
// them, go with the inputs: left alone they would stay in the host's temporary directory
// until the library is unloaded.
void cLargeVolumeInverseFilterDeconAlgorithm::CleanUp() {
    Guard([&] {
        DeleteSubvolumeFiles(mSubvolumeLogs);
        mSubvolumeLogs = cSubvolumeLogList();
        mImageSpectra.clear();
        mSpectrumFilled.clear();
        mImagePlanes.clear();
        mRawSums.clear();
        mBesselTable = cCountedPtr<cBesselTable>();
        mSharePsf = false;
    });
}

} // namespace Ovidane
