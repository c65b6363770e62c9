#pragma once
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cDeconOperation.h"
#include "decon/cDeconFramework.h"
#include "image/cOvdImage.h"
#include "interface/ovdinf01.h"

namespace Ovidane {

class cMemoryManagerContainer;
class cSharedPsfFirstGuess;

// A restoration method: turns the settings of a log into a wired framework and runs it.
// The run stages call, in this order: the constructor, SetStatusCallback (when the host
// gave a callback), SetSubvolumeProgress, Initialize, SetUp, Prepare, Run. One object
// restores one stack or subvolume.
class cDeconAlgorithm : public cDeconOperation {
public:
    explicit cDeconAlgorithm(cCountedPtr<cDeconLog> log);
    // Deletes the input file when the log says that it belongs to the run
    // (DEC_BPARAMS_DELETE_ORIGINAL_FILE), then releases the members.
    ~cDeconAlgorithm() override;

    // Loads the original image and fills the constraint lists of the framework.
    virtual void SetUp() = 0;
    // Progress goes to the host's callback; the framework reports through it from now on.
    virtual void SetStatusCallback(ovdStatusCallback callback, void* userData) = 0;
    virtual void SetStatusCallback(ovdStatusCallback callback) = 0;
    // Which subvolume of how many this object restores; shown in every status update.
    virtual void SetSubvolumeProgress(int16_t index, int16_t count) = 0;
    // Lets the host decide, when the planned passes are done, whether to go on.
    virtual void UseCallbackStopCriterion(ovdStatusCallback callback) = 0;
    // The pools the method draws its pixel memory from. The container is a process-wide
    // service, so the algorithm keeps no ownership of it.
    virtual void SetMemoryManagerContainer(cMemoryManagerContainer* container) = 0;
    // Restorations of one size and optics (the subvolumes of a cut) take their PSF from one
    // shared guess: the first makes it, wrapping its own guess when `shared` is null, and
    // the later ones copy it. Before SetUp.
    virtual void SharePsfFirstGuess(cCountedPtr<cSharedPsfFirstGuess>& shared) = 0;
    // Makes the process-wide services ready for this image size (transform plans).
    virtual void Initialize() = 0;
    // Last settings before the run: file names, the operations' own initialisation.
    virtual void Prepare() = 0;
    // The restoration, ending with the result written to DEC_SPARAMS_OUTPUT_IMAGE_FILE.
    virtual void Run() = 0;

    cCountedPtr<cDeconLog> GetLog() const { return mLog; }
    // The object image of the framework; empty without one.
    cFloatImagePtr GetResultImage() const;

    virtual void UpdatePreview(cFloatImagePtr& preview) = 0;
    virtual void UpdatePsfPreview(cFloatImagePtr& preview) = 0;

protected:
    // The deletion of the destructor, done at most once. A derived destructor calls it
    // before its own members go.
    void DeleteOriginalFileIfOwned();

    cCountedPtr<cDeconLog> mLog;
    cDeconFrameworkPtr mFramework;

private:
    bool mOriginalFileHandled = false;
};

using cDeconAlgorithmPtr = cCountedPtr<cDeconAlgorithm>;

} // namespace Ovidane
