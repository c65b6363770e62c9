#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cOvdObject.h"
#include "core/cStatusUpdateHandler.h"
#include "decon/cConstraint.h"
#include "decon/cPixelCorrection.h"
#include "image/cOvdImage.h"
#include "largevolume/SubvolumeLogList.h"
#include "largevolume/cInputBand.h"
#include "largevolume/cSubvolumeCalculator.h"

namespace Ovidane {

class cImageStatistics;

// Turns one run over a large stack into many small ones. One streaming pass gathers the
// stack's statistics (binning or resampling it into a temporary file on the way when the
// log asks for that); then the stack is cut into overlapping subvolumes, and each one is
// read with its guard bands, corrected (intensity drift, transmitted-light inversion, dark
// current), made periodic at its padded size and written to a temporary file of its own,
// or handed to the caller when its restoration is due (SetHandsSubvolumes). For each
// subvolume a copy of the run's log describes a complete small run: input file, result
// file, padded size, guard bands, place in the stack.
//
// Use: SetStatistics, SetLog, optionally SetStatusCallback, Prepare, GetSubvolumeLogs.
// Memory holds one subvolume at a time; the stack stays on disk.
class cSubvoluming : public cOvdObject {
public:
    cSubvoluming();
    ~cSubvoluming() override;

    void SetStatistics(const cCountedPtr<cImageStatistics>& statistics);
    virtual void SetStatusCallback(ovdStatusCallback callback, void* userData);
    virtual void SetStatusCallback(ovdStatusCallback callback);
    virtual void SetLog(const cCountedPtr<cDeconLog>& log);
    virtual cSubvolumeLogList GetSubvolumeLogs();

    // The whole preparation. 0 on success; 1 without a log, or for a stack whose values no
    // restoration can carry (the cause recorded as the call's reason); 5 when the disk of the
    // temporary directory can't hold the subvolume files (then nothing has been written)
    // or a subvolume file didn't reach the disk whole; a failing step's code otherwise.
    virtual int Prepare();

    // Makes the calculator that DEC_FPARAMS_SUBVOLUME_METHOD asks for (the static cut for
    // DEC_FLAG_SVM_STATIC, the memory-budget cut for anything else) and configures it.
    virtual int CreateCalculator();
    // Copies the run's sizes, bands, overlap, montage flags and budget into `calculator`.
    virtual void ConfigureCalculator(const cCountedPtr<cSubvolumeCalculator>& calculator);
    // Appends the log of subvolume (ix, iy, iz); cuts, corrects and writes it unless it is
    // handed over (SetHandsSubvolumes).
    virtual int ProcessSubvolume(uint32_t ix, uint32_t iy, uint32_t iz);
    // Whether the temporary directory's disk holds every subvolume file the run will
    // write, asked before anything is written; false when the free space can't be told.
    // Always true while the temporary files are memory files.
    virtual bool CheckDiskSpace();

    // The cut the run will make, in the terms of its temporary files: subvolumes, the bytes
    // of one padded subvolume (its input file, and each of its results), and the results
    // each subvolume saves. False when the stack can't be cut, the reason recorded when
    // `recordRefusal`.
    struct cPlannedFiles {
        double subvolumes = 0, subvolumeBytes = 0, states = 1;
    };
    bool PlanFiles(cPlannedFiles& planned, bool recordRefusal);

    // Appends a constraint to the list; ProcessSubvolume rebuilds the list for each
    // subvolume.
    void AddConstraint(const cConstraintPtr& constraint);

    // With true, no subvolume's input file is written: the caller takes each padded
    // subvolume from TakeSubvolume when its restoration is due and hands it over itself
    // (cIterativeDeconFramework::UseOriginal). A stack cut into one subvolume, neither binned
    // nor resampled, is then read once, for its statistics, the whole-stack estimate and the
    // window alike. Before Prepare.
    void SetHandsSubvolumes(bool hands) { mHands = hands; }
    // Bytes per pixel of the stack file the log names: 4 float (the default), 2 or 1 for
    // unsigned 16-bit or 8-bit pixels, converted by value as they are read, so the stack
    // needs no float copy. A binned or resampled stack goes on as a float file. Before
    // Prepare.
    void SetStackPixelBytes(uint32_t bytes) { mStackPixelBytes = bytes; }
    // Subvolume `index` (in the order of the logs), read, corrected and made periodic now;
    // a lone one was so by Prepare, and the subvoluming holds it no more.
    cFloatImagePtr TakeSubvolume(std::size_t index);
    // The memory the cut's windows may hold beside the restorations: where the rows that a
    // row of windows shares fit in it, they are read once for the row (cInputBand).
    void SetInputBandRoom(int64_t bytes) { mInputBandRoom = bytes; }

    const cCountedPtr<cSubvolumeCalculator>& GetCalculator() const { return mCalculator; }

private:
    int ReadStack();
    // After the statistics and the cut's geometry: 1, with the cause recorded, for a stack
    // with values that are no numbers, or so large that a padded subvolume's transforms
    // would overflow (kLargestTransformSum over its pixel count); 0 otherwise.
    int CheckStackValues() const;
    // The corrections that slices first to last of the stack get before a subvolume is
    // made periodic: intensity drift, transmitted-light inversion, dark current.
    std::vector<cPixelCorrectionPtr> SliceCorrections(uint32_t firstSlice,
                                                      uint32_t lastSlice) const;
    // With DEC_BPARAMS_STACK_ESTIMATES: one more pass over the stack, which the cut makes
    // however it cuts, gathers what describes the whole stack for every subvolume's
    // restoration: the background left after the corrections (each subvolume's log gets
    // it as its dark current), the stack's sum (DEC_RPARAMS_STACK_SUM, for the blending's
    // non-negativity step) and, for an estimated regularisation, the plane it is estimated
    // from (DEC_SPARAMS_STACK_PLANE_FILE). 0; 1 when the stack's sum is not positive and
    // the run keeps it (no phase object); 5 when the plane's file can't be written.
    // `corrected`: the whole stack in memory, corrected already, in place of the pass.
    int EstimateForTheWholeStack(const cFloatImagePtr& corrected = cFloatImagePtr());
    // Whether the stack, neither binned nor resampled, is cut into one subvolume (makes the
    // calculator to tell).
    bool LoneWithoutResampling();
    // Prepare for a lone subvolume handed over (SetHandsSubvolumes).
    int PrepareLone();
    // Subvolume (ix, iy, iz) padded and ready for its restoration: read with its guard bands
    // and corrected, or the lone window that PrepareLone corrected; then made periodic.
    cFloatImagePtr CutImage(const cImageDimensions& index);
    // An image of `size` for a window of the stack, in memory that all windows of the cut
    // share (mWindowMemory).
    cFloatImagePtr WindowOf(const cImageDimensions& size);
    // The window `box` of a cut from the band of its row of windows, where one fits in the
    // room given; null where none does.
    std::shared_ptr<const cWindowLines> BandLines(const cImageBox& box);
    // The memory of the largest band of the cut's rows of windows.
    uint64_t LargestBandBytes(const cImageDimensions& stack) const;
    void GenerateInitialImage();
    cCountedPtr<cSubvolumeCalculator> NewCalculator() const;
    void ReportProgress(int16_t subvolume, int16_t count);
    // A new, empty file in the temporary directory; fails when none can be made.
    std::string NewTempFile() const;
    // Reads the stack's box into `window`, slice by slice.
    void ReadWindow(const cDeconParameter& run, const cImageBox& box,
                    const cFloatImagePtr& window) const;

    std::vector<cConstraintPtr> mConstraints;
    cCountedPtr<cStatusUpdateHandler> mStatusHandler;
    cCountedPtr<cDeconLog> mLog;
    cSubvolumeLogList mSubvolumeLogs;
    cCountedPtr<cSubvolumeCalculator> mCalculator;
    cCountedPtr<cImageStatistics> mStatistics;
    ovdStatusCallback mCallback = nullptr;
    float mProgress = 0.0f;
    float mProgressStep = 0.0f;
    float mStackBackground = 0.0f;
    bool mHands = false;
    uint32_t mStackPixelBytes = sizeof(float);
    // The place in the cut of each subvolume handed over, in the order of the logs.
    std::vector<cImageDimensions> mHanded;
    cFloatImagePtr mLone;
    // The lone subvolume's window, read and corrected by PrepareLone for ProcessSubvolume.
    cFloatImagePtr mLoneWindow;
    // Room for the largest window of the cut. The windows' sizes differ at the stack's edges,
    // and the memory manager keeps a region for every size it is asked for: windows of their
    // own would hold six regions of a 4 by 4 cut for the rest of the process, where one does.
    cFloatImagePtr mWindowMemory;
    int64_t mInputBandRoom = 0;
    cCountedPtr<cInputBand> mInputBand;
};

} // namespace Ovidane
