#pragma once
#include <cstdint>
#include <optional>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cDeconOperation.h"
#include "core/cImageDimensions.h"
#include "decon/cDeconFramework.h"
#include "decon/cNoiseSmoothing.h"
#include "decon/cObjectFirstGuess.h"
#include "decon/cPreview.h"
#include "decon/cPsfFirstGuess.h"
#include "image/cOvdImage.h"
#include "interface/ovdinf01.h"

namespace Ovidane {

class cIterativeDeconFramework;
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
    const cImageDimensions& GetSize() const { return mSize; }
    // The object image of the framework; empty without one.
    cFloatImagePtr GetResultImage() const;

    virtual void UpdatePreview(cFloatImagePtr& preview) = 0;
    virtual void UpdatePsfPreview(cFloatImagePtr& preview) = 0;

protected:
    // The deletion of the destructor, done at most once. A derived destructor calls it
    // before its own members go.
    void DeleteOriginalFileIfOwned();

    // ---- Wiring that the algorithms on the iterative framework share.

    // Size and spacing of the stack or subvolume, from the log.
    void ReadGeometry();
    // The PSF of the optics in the log. `stretch` divides the plane distance that the model
    // sees (1 for none).
    cPsfFirstGuessPtr MakeTheoreticalPsfFirstGuess(float stretch) const;
    // DEC_RPARAMS_STRCH_FACTOR, or 1 (no stretch) where the log leaves it at 0 or below: a
    // stretch that isn't positive would put every plane at an infinite depth.
    float StretchFactor() const;
    // The PSF file of the log, brought to the stack's grid. With `thinPsfTakesStackSpacing`
    // a file one pixel wide takes its plane distance from the stack.
    cPsfFirstGuessPtr MakeLoadFilePsfFirstGuess(bool thinPsfTakesStackSpacing) const;
    // The object and PSF previews that DEC_FPARAMS_PREVIEW_METHOD and
    // DEC_FPARAMS_PSF_PREVIEW_METHOD ask for; empty for none. The kinds that keep a running
    // maximum projection, or write the PSF's preview to a file, are offered only where
    // `planeKinds` (`blindKinds` for the PSF) says so.
    void MakePreviews(cPreviewPtr& preview, cPreviewPtr& psfPreview, bool planeKinds = false,
                      bool blindKinds = false) const;
    // The estimate an iterative method starts from, by DEC_FPARAMS_INITIAL_GUESS_METHOD.
    // The inverse-filtered start gets a theoretical PSF of its own, stretched by
    // `ownPsfStretch`, when the run's PSF guess is the flat sheet: filtering with a flat
    // PSF would give back a flat image. Without a stretch it filters with the run's PSF.
    cObjectFirstGuessPtr MakeObjectFirstGuess(std::optional<float> ownPsfStretch);
    // A Gaussian blur of the start estimate when the regularisation factor asks for one of
    // more than a pixel; empty otherwise. Its width counts in lateral pixels and planes lie
    // `planeDistance` of them apart.
    cNoiseSmoothingPtr MakeObjectSmoothing(float planeDistance) const;
    // How many lateral pixels apart the planes lie.
    float PlaneDistanceInPixels() const { return mSpacing[2] / mSpacing[0]; }
    // The PSF's preparation: the cleaning of a measured PSF when the log asks for it, then
    // always the scaling to sum 1. A positive `hourglassMinimumRadius` is written to the log
    // and used for the hourglass in place of the log's radius.
    void AddPsfPreparation(cIterativeDeconFramework& framework, float hourglassMinimumRadius);
    // Transform plans of the stack's size on the calling thread.
    void InitializeTransforms() const;
    // SharePsfFirstGuess for an algorithm whose own guess is `own`.
    void JoinSharedPsfFirstGuess(cPsfFirstGuessPtr& own,
                                 cCountedPtr<cSharedPsfFirstGuess>& shared) const;

    cCountedPtr<cDeconLog> mLog;
    cDeconFrameworkPtr mFramework;
    cImageDimensions mSize{1, 1, 1};
    float mSpacing[3] = {1.0f, 1.0f, 1.0f};

private:
    bool mOriginalFileHandled = false;
};

using cDeconAlgorithmPtr = cCountedPtr<cDeconAlgorithm>;

} // namespace Ovidane
