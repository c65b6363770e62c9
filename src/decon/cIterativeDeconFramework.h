#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cImageDimensions.h"
#include "core/cStatusUpdateHandler.h"
#include "decon/cConstraint.h"
#include "decon/cDeconFramework.h"
#include "decon/cNoiseSmoothing.h"
#include "decon/cObjectFirstGuess.h"
#include "decon/cOptimization.h"
#include "decon/cPreview.h"
#include "decon/cPsfFirstGuess.h"
#include "decon/cStopCriterion.h"

namespace Ovidane {

// The one restoration loop that every algorithm wires. It owns the three working images
// (PSF, object, original) and runs the plugged-in operations in a fixed order:
//
//   Load      original image from DEC_SPARAMS_ORIGINAL_FILE
//   Prepare   PSF first guess, PSF pre-processing, object first guess, object and PSF
//             smoothing, image pre-processing
//   Iterate   until the stop criterion says so: acceleration and optimization, smoothing,
//             PSF and image constraints, count the pass, post-iteration constraints,
//             intermediate saves; then the finish: PSF and result saved
//
// Progress: every operation that runs is one step; the loop adds one step per operation per
// pass plus one for the finish, and each finished step adds 100 / (number of steps) percent.
// Status stages: 102 for preparation steps, 136 at the start of a pass (and for the image
// constraints and the finish), 106 for the steps inside a pass.
class cIterativeDeconFramework : public cDeconFramework {
public:
    cIterativeDeconFramework(cCountedPtr<cDeconLog> log, const cImageDimensions& size);
    ~cIterativeDeconFramework() override;

    void Load() override;
    void Prepare() override;
    void Iterate() override;
    cFloatImagePtr GetObjectImage() override;
    void SetSubvolumeProgress(int16_t index, int16_t count) override;
    void UpdatePreview(cFloatImagePtr& preview) override;
    void UpdatePsfPreview(cFloatImagePtr& preview) override;

    cFloatImagePtr GetOriginalImage() const { return mOriginal; }
    cFloatImagePtr GetPsfImage() const { return mPsf; }
    const cImageDimensions& GetSize() const { return mSize; }

    // With true, Load makes one image that is both the original and the object: the
    // restoration then happens in place and saves a whole volume of memory. Only a method
    // that needs the original no more once it has started may ask for it.
    void SetObjectSharesOriginal(bool shares) { mObjectSharesOriginal = shares; }

    // With false, the finish leaves the result in memory only (GetObjectImage) and writes
    // no result file: for a caller that reduces the result to a number and throws it away,
    // or writes the part of it that it needs itself (WriteImageBox).
    void SetWritesResultFile(bool writes) { mWritesResultFile = writes; }
    // Writes the box of `image` to `fileName`, a file of the library's own in the temporary
    // directory, densely packed. Fails, with the reason recorded for the host, when the box
    // doesn't reach the file whole.
    void WriteImageBox(const std::string& fileName, const cFloatImagePtr& image,
                       const cImageBox& box);

    // With false, Load makes the images but reads no file into them, and the image
    // pre-processing is left out: for a method that has what it needs of the original
    // already (its transform, kept from an earlier restoration of the same file) and
    // overwrites the object without reading it.
    void SetReadsOriginalFile(bool reads) { mReadsOriginalFile = reads; }

    // The original image itself, of the framework's size, handed over by the caller that
    // made it, for Load to take in place of reading the original file (which then need not
    // exist). The caller changes it no more.
    void UseOriginal(const cFloatImagePtr& original) { mHandedOriginal = original; }

    // Without a handler the run reports nothing and cannot be cancelled.
    void SetStatusUpdateHandler(const cCountedPtr<cStatusUpdateHandler>& handler) {
        mStatusHandler = handler;
    }

    void SetPsfFirstGuess(const cPsfFirstGuessPtr& guess) { mPsfFirstGuess = guess; }
    void SetObjectFirstGuess(const cObjectFirstGuessPtr& guess) { mObjectFirstGuess = guess; }
    // Applied once in Prepare, to the object and to the PSF.
    void SetObjectSmoothing(const cNoiseSmoothingPtr& smoothing) { mObjectSmoothing = smoothing; }
    void SetPsfSmoothing(const cNoiseSmoothingPtr& smoothing) { mPsfSmoothing = smoothing; }
    // Applied to the object after every pass.
    void SetIterationSmoothing(const cNoiseSmoothingPtr& smoothing) {
        mIterationSmoothing = smoothing;
    }
    void SetOptimization(const cOptimizationPtr& optimization) { mOptimization = optimization; }
    void SetStopCriterion(const cStopCriterionPtr& criterion) { mStopCriterion = criterion; }
    void SetPreview(const cPreviewPtr& preview) { mPreview = preview; }
    void SetPsfPreview(const cPreviewPtr& preview) { mPsfPreview = preview; }

    // The six constraint lists, each applied in the order of adding. Pre-processing runs once
    // in Prepare (and the lists are emptied then); the iteration lists run in every pass
    // before the pass is counted, the post lists after it.
    void AddPsfPreprocessing(const cConstraintPtr& constraint) {
        mPsfPreprocessing.push_back(constraint);
    }
    void AddImagePreprocessing(const cConstraintPtr& constraint) {
        mImagePreprocessing.push_back(constraint);
    }
    void AddPsfConstraint(const cConstraintPtr& constraint) {
        mPsfConstraints.push_back(constraint);
    }
    void AddImageConstraint(const cConstraintPtr& constraint) {
        mImageConstraints.push_back(constraint);
    }
    void AddPsfPostConstraint(const cConstraintPtr& constraint) {
        mPsfPostConstraints.push_back(constraint);
    }
    void AddImagePostConstraint(const cConstraintPtr& constraint) {
        mImagePostConstraints.push_back(constraint);
    }

    float GetPercentDone() const { return mPercentDone; }
    float GetPercentPerStep() const { return mPercentPerStep; }

private:
    using cConstraintList = std::vector<cConstraintPtr>;

    // One finished step: advances the progress and tells the handler, if there is one.
    // A cancel leaves here as an exception.
    float PercentPerStep(int32_t total) const;
    void ReportStep(int32_t iteration, int32_t total, int16_t stage);
    void Report(float percent, int32_t iteration, int32_t total, int16_t stage);

    void SaveIntermediates(int32_t count, int32_t total);
    void Finish(int32_t total);
    // Writes the PSF with its centre in the middle of the volume, the form a viewer expects;
    // the PSF in memory keeps its centre at the origin.
    void SavePsf(const std::string& fileName);

    // The only places that touch files.
    void ReadImageFile(const std::string& fileName, const cFloatImagePtr& image);
    void WriteImageFile(const std::string& fileName, const cFloatImagePtr& image);

    cFloatImagePtr NewImage(const cImageDimensions& size) const;
    // True when nothing plugged in ever writes the PSF once it is prepared.
    bool PsfOnlyRead() const;

    cImageDimensions mSize{1, 1, 1};

    cFloatImagePtr mPsf;
    cFloatImagePtr mObject;
    cFloatImagePtr mOriginal;

    cPsfFirstGuessPtr mPsfFirstGuess;
    cObjectFirstGuessPtr mObjectFirstGuess;
    cNoiseSmoothingPtr mObjectSmoothing;
    cNoiseSmoothingPtr mPsfSmoothing;
    cNoiseSmoothingPtr mIterationSmoothing;
    cOptimizationPtr mOptimization;
    cStopCriterionPtr mStopCriterion;
    cPreviewPtr mPreview;
    cPreviewPtr mPsfPreview;

    cCountedPtr<cDeconLog> mLog;
    cCountedPtr<cStatusUpdateHandler> mStatusHandler;

    cConstraintList mPsfPreprocessing;
    cConstraintList mImagePreprocessing;
    cConstraintList mPsfConstraints;
    cConstraintList mImageConstraints;
    cConstraintList mPsfPostConstraints;
    cConstraintList mImagePostConstraints;

    float mPercentDone = 0;
    float mPercentPerStep = 0;
    int16_t mSubvolumeIndex = 1;
    int16_t mSubvolumeCount = 1;
    uint32_t mStepsOutsideLoop = 0;
    uint32_t mStepsPerIteration = 0;

    bool mObjectSharesOriginal = false;
    bool mWritesResultFile = true;
    bool mReadsOriginalFile = true;
    cFloatImagePtr mHandedOriginal;
};

} // namespace Ovidane
