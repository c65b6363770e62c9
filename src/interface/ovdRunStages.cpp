// The run stages: from the filled log of a run to the output file.
#include <cmath>
#include <cstdio>
#include <string>

#include "core/DeconKeys.h"
#include "core/cException.h"
#include "core/cFailureReason.h"
#include "decon/DeconAlgorithmChoice.h"
#include "decon/cFrameworkDeconAlgorithm.h"
#include "decon/cSharedPsfFirstGuess.h"
#include "interface/ovdRunInverseFilter.h"
#include "largevolume/SubvolumeFiles.h"
#include "largevolume/SubvolumeMemoryBudget.h"
#include "largevolume/cBlending.h"
#include "largevolume/cImageStatistics.h"
#include "largevolume/cSubvolumeAccessor.h"
#include "largevolume/cSubvoluming.h"
#include "math/cImageMathManager.h"

namespace Ovidane {
namespace {

cRestorationKind KindOf(uint32_t method) {
    switch (method) {
    case OVD_METHOD_MLEM_2D: return cRestorationKind::Plane;
    case OVD_METHOD_BLIND_2D: return cRestorationKind::BlindPlane;
    default: return cRestorationKind::ByLogMethod;
    }
}

// Each subvolume is restored by its own algorithm, of the method the log names, strictly
// one after the other, so the memory budget of the cut holds for one restoration at a time.
// Releasing the algorithm deletes its input file, as the subvolume's log asks. A non-null
// `psf` slot shares the PSF of the first subvolume with the others. The padded subvolume
// comes in memory (`original`). A stack cut into one subvolume (`inMemory`) has its
// restoration come back the same way, not through its result file, as the answer (null
// otherwise); a cut's restoration goes to the blending that takes them as they come
// (`streamed`), or else to its result file without the guard bands, which the blending
// never reads (cSubvolumeAccessor::InteriorOf).
cFloatImagePtr RestoreSubvolume(const ovdRunArguments& a, const cCountedPtr<cDeconLog>& log,
                                int16_t index, int16_t count,
                                cCountedPtr<cSharedPsfFirstGuess>* psf,
                                const cFloatImagePtr& original, bool inMemory,
                                cBlending* streamed) {
    cDeconAlgorithmPtr algorithm = MakeDeconAlgorithm(log, KindOf(a.method));
    if (psf)
        algorithm->SharePsfFirstGuess(*psf);
    auto* framework = dynamic_cast<cFrameworkDeconAlgorithm*>(algorithm.Get());
    // Every method runs on the iterative framework, which takes the subvolume in memory.
    if (!framework)
        throw cException("RestoreSubvolume", "no framework to hand the subvolume to",
                         OVD_ERR_PARAMETER);
    framework->GetFramework()->UseOriginal(original);
    framework->GetFramework()->SetWritesResultFile(false);
    if (a.callback)
        algorithm->SetStatusCallback(a.callback, a.userData);
    algorithm->SetSubvolumeProgress(index, count);
    algorithm->Initialize();
    algorithm->SetUp();
    algorithm->Prepare();
    algorithm->Run();

    // The arithmetic of a restoration can still pass the float limit, e.g. with a
    // regularisation level far below what the stack's values call for. Such a result is
    // never blended into the host's output: the run fails and says so. The streamed
    // blending tests the pixels it takes as it adds them, before their rows are written.
    const cFloatImagePtr result = algorithm->GetResultImage();
    const auto passedTheLimit = [&] {
        const std::string reason = "the restoration of subvolume " + std::to_string(index) +
                                   " of " + std::to_string(count) +
                                   " passed the float limit: its result holds values that are "
                                   "not finite numbers (is the regularisation level too small "
                                   "for the stack's values?)";
        cFailureReason::Record(reason);
        return cException("RestoreSubvolume", reason, OVD_ERR_FOREIGN);
    };
    if (streamed && !inMemory) {
        if (!streamed->AddRestored(std::size_t(index - 1), result))
            throw passedTheLimit();
        return cFloatImagePtr();
    }
    if (!result.IsNull() &&
        !std::isfinite(cImageMathManager::Instance().GetImageMath()->SumImage(result)))
        throw passedTheLimit();
    if (inMemory)
        return result;
    const cDeconParameter& p = log->GetParameters();
    framework->GetFramework()->WriteImageBox(p.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE), result,
                                             cSubvolumeAccessor::InteriorOf(p));
    return cFloatImagePtr();
}

// The first subvolume of a run that estimates for the whole stack has estimated K from the
// stack's plane; the others take it from their logs as it is.
void PassOnTheStackRegularization(const std::vector<cCountedPtr<cDeconLog>>& logs) {
    const float k = logs.front()->GetParameters().GetReal(DEC_RPARAMS_STACK_REGULARIZATION);
    if (k > 0.0f)
        for (const cCountedPtr<cDeconLog>& log : logs)
            log->GetParameters().SetReal(DEC_RPARAMS_STACK_REGULARIZATION, k);
}

// The saved PSF file is a mosaic: every subvolume's PSF, at its padded size, laid side by
// side in x and y without overlap; a subvolume's padded depth deep (one plane for a stack
// of one slice). Its size is thus known from the cut alone. Sizes beyond 16 bits are
// truncated, as the boundary's fields are 16-bit. A run without a saved PSF reports 0.
void ReportSavedPsf(const ovdRunArguments& a, const ovdRunState& state) {
    int16_t width = 0, height = 0, depth = 0;
    if (!a.outputPsfFile.empty() && state.subvolumeLogs && !state.subvolumeLogs->empty()) {
        const cDeconParameter& first = (*state.subvolumeLogs)[0]->GetParameters();
        width = int16_t(first.GetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES) *
                        first.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH));
        height = int16_t(first.GetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES) *
                         first.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT));
        depth = first.GetBool(DEC_BPARAMS_IS_2D)
                    ? int16_t(1)
                    : int16_t(first.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH));
    }
    if (a.savedPsfWidth)
        *a.savedPsfWidth = width;
    if (a.savedPsfHeight)
        *a.savedPsfHeight = height;
    if (a.savedPsfDepth)
        *a.savedPsfDepth = depth;
    // The spacings are those the host gave for its PSF; a computed PSF reports 0.
    const cDeconParameter& p = state.log->GetParameters();
    if (a.savedPsfXSpacing)
        *a.savedPsfXSpacing = p.GetReal(DEC_RPARAMS_PSF_X_SPACING);
    if (a.savedPsfYSpacing)
        *a.savedPsfYSpacing = p.GetReal(DEC_RPARAMS_PSF_Y_SPACING);
    if (a.savedPsfZSpacing)
        *a.savedPsfZSpacing = p.GetReal(DEC_RPARAMS_PSF_Z_SPACING);
}

// A stack without contrast, or with pixels that are no numbers, stops a restoration deep
// inside, where the message can name only the step that could not go on. The whole stack's
// statistics name the cause the host can act on.
void RecordStackCause(const cImageStatistics& statistics) {
    const float low = statistics.GetMinimum();
    const float high = statistics.GetMaximum();
    if (!std::isfinite(low) || !std::isfinite(high) || !std::isfinite(statistics.GetMean())) {
        cFailureReason::Record("the stack holds pixels that are not finite numbers (NaN or "
                               "infinity)");
    } else if (!(high > low)) {
        char value[32];
        std::snprintf(value, sizeof value, "%g", double(low));
        cFailureReason::Record(std::string("the stack has no contrast: every pixel is ") + value +
                               ", and nothing is left once its background is taken off");
    }
}

} // namespace

int64_t ovdSubvolumeMemorySize(const ovdRunArguments& a, const cDeconParameter& p) {
    return GetSubvolumeMemoryBudget(1, ExtraWorkingImages(p, KindOf(a.method)));
}

uint16_t ovdRunInverseFilterStages(const ovdRunArguments& a, ovdRunState& state) {
    // The statistics of the whole stack outlive the cut: the blending's last pass reads
    // them as well.
    cCountedPtr<cImageStatistics> statistics =
        new cImageStatistics(uint32_t(a.width), uint32_t(a.height), uint32_t(a.depth));
    // The padded subvolumes go to their restorations in memory, each cut when its turn
    // comes: an input file would be written once and read once right after. A stack cut
    // into one subvolume goes on to the blending in memory too.
    cCountedPtr<cSubvoluming> subvoluming = new cSubvoluming();
    subvoluming->SetStatistics(statistics);
    subvoluming->SetLog(state.log);
    subvoluming->SetHandsSubvolumes(true);
    subvoluming->SetStackPixelBytes(state.stackPixelBytes);
    if (const int code = subvoluming->Prepare(); code != 0) {
        state.subvolumeLogs = subvoluming->GetSubvolumeLogs();
        // The cut stops a run whose stack leaves nothing to restore.
        if (code == OVD_RESULT_RUN_FAILED)
            RecordStackCause(*statistics);
        // A cut that stopped half way may have made some subvolumes' files already.
        ovdDiscardRunFiles(state);
        return uint16_t(code);
    }
    state.subvolumeLogs = subvoluming->GetSubvolumeLogs();

    const std::size_t count = state.subvolumeLogs ? state.subvolumeLogs->size() : 0;
    // Each piece would estimate a PSF of its own, and the saved estimate would be a mosaic
    // of guesses: the blind method restores a plane whole or not at all.
    if (a.method == OVD_METHOD_BLIND_2D && count > 1) {
        cFailureReason::Record("the blind method restores a plane in one piece, and the memory "
                               "budget cuts this one into " +
                               std::to_string(count) + "; give the run more memory");
        ovdDiscardRunFiles(state);
        return OVD_RESULT_INVALID_ARGUMENT;
    }
    // The subvolumes share the PSF of the first: one size, one optics. It counts among the
    // images a restoration is given.
    cCountedPtr<cSharedPsfFirstGuess> psf;
    cFloatImagePtr restored;
    // A cut is blended as its restorations come when a band of the output fits beside one
    // restoration: no restoration then goes to a file of its own to be read back. The band
    // an earlier cut kept goes back when it doesn't fit beside this run's restorations.
    cCountedPtr<cBlending> streamed;
    int64_t room = 0;
    if (count > 1) {
        const cDeconParameter& first = (*state.subvolumeLogs)[0]->GetParameters();
        const int64_t subvolumeBytes = int64_t{first.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)} *
                                       first.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT) *
                                       first.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH) *
                                       int64_t{sizeof(float)};
        room = GetRoomBesideRestoration(
            subvolumeBytes, ExtraWorkingImages(state.log->GetParameters(), KindOf(a.method)));
    }
    cBlendingBand::KeepAtMost(uint64_t(room));
    if (count > 1) {
        streamed = StartStreamedBlending(a.outputFile, state.log, state.subvolumeLogs,
                                         statistics, room);
        // What the band of the output leaves of the room holds the rows of the stack that
        // a row of windows shares.
        subvoluming->SetInputBandRoom(room - int64_t(streamed ? streamed->StreamedBytes() : 0));
    }
    try {
        for (std::size_t i = 0; i < count; ++i) {
            restored = RestoreSubvolume(a, (*state.subvolumeLogs)[i], int16_t(i + 1),
                                        int16_t(count), count > 1 ? &psf : nullptr,
                                        subvoluming->TakeSubvolume(i), count == 1,
                                        streamed.Get());
            if (i == 0)
                PassOnTheStackRegularization(*state.subvolumeLogs);
        }
    } catch (const cException& failure) {
        if (failure.GetCode() != OVD_ERR_CANCEL) // a cancel has no cause in the stack
            RecordStackCause(*statistics);
        throw;
    } catch (...) {
        RecordStackCause(*statistics);
        throw;
    }
    subvoluming = cCountedPtr<cSubvoluming>();

    const uint16_t result =
        streamed ? streamed->FinishStreamed()
                 : BlendSubvolumesInto(a.outputFile, state.log, state.subvolumeLogs, statistics,
                                       restored, count > 1);
    // Reported whatever the blending answered; the exported operations pass them on only
    // after a success.
    ReportSavedPsf(a, state);
    return result;
}

void ovdDiscardRunFiles(ovdRunState& state) {
    DeleteSubvolumeFiles(state.subvolumeLogs);
}

} // namespace Ovidane
