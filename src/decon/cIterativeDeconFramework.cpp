#include "decon/cIterativeDeconFramework.h"

#include <algorithm>
#include <ostream>

#include "core/cException.h"
#include "core/cFailureReason.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "math/cImageMathManager.h"
#include "platform/Platform.h"

namespace Ovidane {

namespace {

// Stages of the status record (see the class comment).
constexpr int16_t kStagePrepared = OVD_STAGE_INITIALISED;
constexpr int16_t kStageStep = OVD_STAGE_STEP_DONE;
constexpr int16_t kStageIteration = OVD_STAGE_ITERATION_START;

template <class T> uint32_t CountOf(const cCountedPtr<T>& operation) {
    return operation.IsNull() ? 0u : 1u;
}

} // namespace

cIterativeDeconFramework::cIterativeDeconFramework(cCountedPtr<cDeconLog> log,
                                                   const cImageDimensions& size)
    : mSize(size), mLog(std::move(log)) {}

cIterativeDeconFramework::~cIterativeDeconFramework() = default;

cFloatImagePtr cIterativeDeconFramework::NewImage(const cImageDimensions& size) const {
    return cFloatImagePtr(new cOvdImage<float>(size, GetObjectName()));
}

// ---- Files

void cIterativeDeconFramework::ReadImageFile(const std::string& fileName,
                                             const cFloatImagePtr& image) {
    cUnmanagedRawFileReader reader(fileName);
    if (!reader.Open())
        Fail("Could not open file to read: " + fileName, OVD_ERR_PARAMETER);
    const bool complete = reader.Read(image);
    reader.Close();
    if (!complete)
        Fail("Short read of " + fileName + " in Load", OVD_ERR_PARAMETER);
}

void cIterativeDeconFramework::WriteImageFile(const std::string& fileName,
                                              const cFloatImagePtr& image) {
    const cImageDimensions size = image ? image->GetDimensions() : cImageDimensions{1, 1, 1};
    WriteImageBox(fileName, image, {0, 0, 0, size.x - 1, size.y - 1, size.z - 1});
}

void cIterativeDeconFramework::WriteImageBox(const std::string& fileName,
                                             const cFloatImagePtr& image, const cImageBox& box) {
    // The writer goes on past a short write and notes it instead of failing; a result that
    // did not reach the disk whole is a failed run all the same.
    cUnmanagedRawFileWriter writer(fileName);
    if (!writer.Open())
        Fail("Could not open file to write: " + fileName, OVD_ERR_PARAMETER);
    writer.WriteRegion(image, box.x0, box.y0, box.z0, box.x1, box.y1, box.z1);
    const bool closed = writer.Close();
    if (!closed || !writer.GetLastError().empty()) {
        // The restorations write only the library's own files, in the temporary directory:
        // the host learns that it is that directory's disk, and what the system said.
        cFailureReason::Record("a restoration's result could not be written in the temporary "
                               "directory, " +
                               fileName + " (" + writer.GetLastError() + ")");
        Fail("Could not write file: " + fileName, OVD_ERR_PARAMETER);
    }
}

// ---- Progress

void cIterativeDeconFramework::Report(float percent, int32_t iteration, int32_t total,
                                      int16_t stage) {
    if (mStatusHandler)
        mStatusHandler->Update(percent, static_cast<int16_t>(iteration),
                               static_cast<int16_t>(total), mSubvolumeIndex, mSubvolumeCount,
                               stage);
}

float cIterativeDeconFramework::PercentPerStep(int32_t total) const {
    // Every operation of a pass once per pass, every one-time operation once, and one step
    // for the finish.
    const int64_t steps = int64_t{mStepsPerIteration} * total + 1 + int64_t{mStepsOutsideLoop};
    return 100.0f / static_cast<float>(std::max<int64_t>(1, steps));
}

void cIterativeDeconFramework::ReportStep(int32_t iteration, int32_t total, int16_t stage) {
    mPercentDone += mPercentPerStep;
    Report(mPercentDone, iteration, total, stage);
}

void cIterativeDeconFramework::SetSubvolumeProgress(int16_t index, int16_t count) {
    Guard([&] {
        mSubvolumeIndex = index;
        mSubvolumeCount = count;
    });
}

// ---- The fixed order

void cIterativeDeconFramework::Load() {
    Guard([&] {
        const bool handed = !mHandedOriginal.IsNull();
        if (handed && !(mHandedOriginal->GetDimensions() == mSize))
            Fail("Invalid Dimensions in Load: the original handed over", OVD_ERR_PARAMETER);
        mOriginal = handed ? mHandedOriginal : NewImage(mSize);
        mHandedOriginal = cFloatImagePtr();
        mObject = mObjectSharesOriginal ? mOriginal : NewImage(mSize);
        mPsf = cFloatImagePtr();
        if (mReadsOriginalFile && !handed)
            ReadImageFile(mLog->GetParameters().GetString(DEC_SPARAMS_ORIGINAL_FILE), mOriginal);
        MessageStream() << mSize.x << " X " << mSize.y << " X " << mSize.z << '\n';
    });
}

void cIterativeDeconFramework::Prepare() {
    Guard([&] {
        cDeconParameter& parameters = mLog->GetParameters();
        const int32_t total = parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS);

        mStepsOutsideLoop =
            static_cast<uint32_t>(mImagePreprocessing.size() + mPsfPreprocessing.size()) +
            CountOf(mPsfFirstGuess) + CountOf(mObjectFirstGuess) + CountOf(mObjectSmoothing) +
            CountOf(mPsfSmoothing);
        mStepsPerIteration =
            static_cast<uint32_t>(mPsfConstraints.size() + mImageConstraints.size() +
                                  mPsfPostConstraints.size() + mImagePostConstraints.size()) +
            CountOf(mOptimization) + CountOf(mIterationSmoothing);
        mPercentDone = 0;
        mPercentPerStep = PercentPerStep(total);
        parameters.SetInt(DEC_IPARAMS_CURRENT_ITERATION, 0);

        for (const cConstraintList* list :
             {&mPsfPreprocessing, &mPsfConstraints, &mImagePreprocessing, &mImageConstraints})
            for (const cConstraintPtr& constraint : *list)
                constraint->Setup();

        if (mStatusHandler)
            mStatusHandler->StartClock();

        // A shared guess may hold the PSF as an earlier restoration of the series prepared
        // it; otherwise it is made and prepared here, and kept for the next ones.
        const bool readOnly = PsfOnlyRead();
        bool prepared = false;
        if (mPsfFirstGuess) {
            prepared = mPsfFirstGuess->TakePrepared(mPsf, readOnly);
            if (!prepared)
                mPsfFirstGuess->Apply(mPsf, mOriginal);
            ReportStep(0, total, kStagePrepared);
        }
        for (const cConstraintPtr& constraint : mPsfPreprocessing) {
            if (!prepared)
                constraint->Apply(mPsf);
            ReportStep(0, total, kStagePrepared);
        }
        mPsfPreprocessing.clear();
        if (mPsfFirstGuess && !prepared)
            mPsfFirstGuess->KeepPrepared(mPsf, readOnly);

        // What the one-time operations hold (a whole restoration, for some first guesses)
        // must not sit on memory through the passes: each is let go as soon as it is done.
        if (mObjectFirstGuess) {
            mObjectFirstGuess->Apply(mPsf, mOriginal, mObject);
            mObjectFirstGuess = cObjectFirstGuessPtr();
            ReportStep(0, total, kStageIteration);
        }
        const int32_t nextIteration = parameters.GetInt(DEC_IPARAMS_CURRENT_ITERATION) + 1;
        if (mObjectSmoothing) {
            mObjectSmoothing->Apply(mObject, static_cast<uint32_t>(nextIteration));
            mObjectSmoothing = cNoiseSmoothingPtr();
            ReportStep(0, total, kStagePrepared);
        }
        if (mPsfSmoothing) {
            mPsfSmoothing->Apply(mPsf, static_cast<uint32_t>(nextIteration));
            mPsfSmoothing = cNoiseSmoothingPtr();
            ReportStep(0, total, kStagePrepared);
        }
        for (const cConstraintPtr& constraint : mImagePreprocessing) {
            if (mReadsOriginalFile)
                constraint->Apply(mObject);
            ReportStep(0, total, kStagePrepared);
        }
        mImagePreprocessing.clear();
    });
}

bool cIterativeDeconFramework::PsfOnlyRead() const {
    // The first guess of the object is left out too: some restore with the PSF on the way.
    return mOptimization && mOptimization->OnlyReadsPsf() && !mObjectFirstGuess &&
           !mPsfSmoothing && mPsfConstraints.empty() && mPsfPostConstraints.empty();
}

void cIterativeDeconFramework::Iterate() {
    Guard([&] {
        if (!mStopCriterion)
            Fail("NULL stop criterion in Iterate", OVD_ERR_PARAMETER);
        cDeconParameter& parameters = mLog->GetParameters();
        int32_t total = parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS);

        while (!mStopCriterion->ShouldStop()) {
            const int32_t iteration = parameters.GetInt(DEC_IPARAMS_CURRENT_ITERATION);
            // The total is read anew for every pass: a stop criterion that asks the host may
            // have extended the run, and the progress is worked out again from the new total.
            total = parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS);
            mPercentPerStep = PercentPerStep(total);
            mPercentDone =
                static_cast<float>(int64_t{mStepsPerIteration} * iteration + mStepsOutsideLoop) *
                mPercentPerStep;
            Report(mPercentDone, iteration, total, kStageIteration);

            const int64_t start = Platform::ProcessClockMilliseconds();
            if (mOptimization) {
                if (cAccelerationPtr acceleration = mOptimization->GetAcceleration())
                    acceleration->Apply(iteration);
                mOptimization->Apply(mObject, mOriginal, mPsf);
            }
            const int64_t end = Platform::ProcessClockMilliseconds();
            MessageStream() << "\t\t" << static_cast<double>(end - start) / 1000.0
                            << " seconds to Apply the Optimization" << '\n'
                            << std::flush;
            ReportStep(iteration, total, kStageStep);

            if (mIterationSmoothing) {
                mIterationSmoothing->Apply(mObject, static_cast<uint32_t>(iteration + 1));
                ReportStep(iteration, total, kStageStep);
            }
            for (const cConstraintPtr& constraint : mPsfConstraints) {
                constraint->Apply(mPsf);
                ReportStep(iteration, total, kStageStep);
            }
            for (const cConstraintPtr& constraint : mImageConstraints) {
                constraint->Apply(mObject);
                ReportStep(iteration, total, kStageIteration);
            }

            const int32_t count = iteration + 1;
            parameters.SetInt(DEC_IPARAMS_CURRENT_ITERATION, count);

            for (const cConstraintPtr& constraint : mPsfPostConstraints) {
                constraint->Apply(mPsf);
                ReportStep(iteration, total, kStageStep);
            }
            for (const cConstraintPtr& constraint : mImagePostConstraints) {
                constraint->Apply(mObject);
                ReportStep(iteration, total, kStageStep);
            }
            SaveIntermediates(count, total);
        }
        Finish(total);
    });
}

void cIterativeDeconFramework::SaveIntermediates(int32_t count, int32_t total) {
    const cDeconParameter& parameters = mLog->GetParameters();
    const std::string& output = parameters.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE);

    // When the count reaches the total under a plain count criterion this pass is certainly
    // the last one, and the finish writes the same image under the result's own name. A
    // criterion that asks the host may still extend the run, so there the pass is saved.
    const int32_t interval = parameters.GetInt(DEC_IPARAMS_SAVE_INTERVAL);
    const bool certainlyLast =
        count == total &&
        parameters.GetFlag(DEC_FPARAMS_STOPPING_CRITERION) != DEC_FLAG_SC_ITERATIVE_CALLBACK;
    if (interval != 0 && count % interval == 0 && !certainlyLast)
        WriteImageFile(output + "_I" + std::to_string(count), mObject);

    const int32_t psfInterval = parameters.GetInt(DEC_IPARAMS_PSF_SAVE_INTERVAL);
    if (parameters.GetBool(DEC_BPARAMS_SAVE_PSF) && psfInterval != 0 && count % psfInterval == 0) {
        const std::string psfFile = output + "_psf" + "_I" + std::to_string(count);
        mLog->GetParameters().SetString(DEC_SPARAMS_OUTPUT_PSF_FILE, psfFile);
        SavePsf(psfFile);
    }
}

void cIterativeDeconFramework::SavePsf(const std::string& fileName) {
    // The optimization hands out the PSF it would save; what it hands out is not the
    // working PSF of the passes, which stays as it is.
    cFloatImagePtr psf = mPsf;
    if (mOptimization)
        mOptimization->RetrievePsf(psf);
    // A run that never made a PSF has none to save.
    if (!psf)
        return;
    // Shifted out of place: shifting the PSF itself there and back would not restore it
    // for odd sizes.
    const cImageDimensions& size = psf->GetDimensions();
    cFloatImagePtr work = NewImage(size);
    cFloatImagePtr centred = NewImage(size);
    cImageMathManager::Instance().GetImageMath()->FFTShift(psf, work, centred);
    work = cFloatImagePtr();
    WriteImageFile(fileName, centred);
}

void cIterativeDeconFramework::Finish(int32_t total) {
    cDeconParameter& parameters = mLog->GetParameters();
    const std::string output = parameters.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE);

    if (parameters.GetBool(DEC_BPARAMS_SAVE_PSF)) {
        const std::string psfFile = output + "_psf";
        parameters.SetString(DEC_SPARAMS_OUTPUT_PSF_FILE, psfFile);
        SavePsf(psfFile);
    }
    // The range of a transmitted-light result goes into the log: the previews show such
    // data inverted within that range, and the blending of subvolumes gathers it.
    if (parameters.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD) {
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        parameters.SetReal(DEC_RPARAMS_IMAGE_MAXIMUM, math->FindMaximumValue(mObject));
        parameters.SetReal(DEC_RPARAMS_IMAGE_MINIMUM, math->FindMinimumValue(mObject));
    }
    if (mWritesResultFile)
        WriteImageFile(output, mObject);

    ReportStep(total, total, kStageIteration);
    MessageStream() << "Completed Deconvolution" << '\n' << std::flush;
}

cFloatImagePtr cIterativeDeconFramework::GetObjectImage() {
    return Guard([&] { return mObject; });
}

void cIterativeDeconFramework::UpdatePreview(cFloatImagePtr& preview) {
    Guard([&] {
        if (mPreview)
            mPreview->Update(preview, mObject);
    });
}

void cIterativeDeconFramework::UpdatePsfPreview(cFloatImagePtr& preview) {
    Guard([&] {
        if (mPsfPreview)
            mPsfPreview->Update(preview, mPsf);
    });
}

} // namespace Ovidane
