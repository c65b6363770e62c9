#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "core/cStatusUpdateHandler.h"
#include "image/cOvdImage.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/SubvolumeLogList.h"
#include "largevolume/cBlendingBand.h"
#include "largevolume/cBlendingMaskCreator.h"
#include "largevolume/cStackNonNegativity.h"
#include "largevolume/cSubvolumeAccessor.h"

namespace Ovidane {

class cImageStatistics;

// Puts the restored subvolumes back together into the output stack. It works one stack
// slice at a time: the matching interior slice of every subvolume is weighted by its seam
// masks and added into the output slice at positions that overlap by the subvolume overlap
// (without overlap, copied in place). Only slices are in memory, except for a stack restored
// in one piece that takes no more than one working image: that is blended whole, once. A
// last pass over the written file then undoes what the preparation did to the whole stack
// (inversion of transmitted-light data, binning). Subvolume PSFs, when saved, are laid side
// by side into one PSF file without weights.
//
// Use: SetStatistics, SetSubvolumeLogs, SetLog (a copy of the run's log whose
// DEC_SPARAMS_ORIGINAL_FILE names the output), optionally SetStatusCallback, Blend. The
// subvolume result files, of every saved iteration, and their PSF files are deleted on
// the way; the output file and its "_I" siblings stay. Outputs are written through the
// names given: replaced in place, never deleted and made anew (see OpenToReplace of the raw
// writer), and the transmitted-light pass turns the written file in place.
//
// When the subvolumes were restored for the whole stack (DEC_BPARAMS_STACK_ESTIMATES, no
// phase object), the blended stack is made non-negative here, with one pedestal for the
// whole stack (cStackNonNegativity), which takes one or two looks at all of it first. A
// stack blended in slabs is then blended once and written as blended, and read back from
// the output for the second look (where one is needed) and the pedestal; for a device,
// which can't be read back, it is blended again for each look and the write, and written
// once. A cut whose band of
// the output fits beside one restoration is blended as its restorations come instead
// (StartStreamed), with no result files at all.
class cBlending : public cOvdObject {
public:
    cBlending();
    ~cBlending() override;

    void SetStatistics(const cCountedPtr<cImageStatistics>& statistics);
    virtual void SetStatusCallback(ovdStatusCallback callback, void* userData);
    virtual void SetStatusCallback(ovdStatusCallback callback);
    virtual void SetSubvolumeLogs(const cSubvolumeLogList& logs);
    virtual void SetLog(const cCountedPtr<cDeconLog>& log);
    virtual cCountedPtr<cDeconLog> GetLog();
    // The restoration of a stack cut into one subvolume, held in memory and never written to
    // its result file: the blending reads it from there. Null: from the file.
    void SetRestoredInMemory(const cFloatImagePtr& restored) { mRestoredInMemory = restored; }
    // With true, each result file holds its subvolume's interior alone, without the guard
    // bands that the blending never reads (cSubvolumeAccessor::InteriorOf).
    void SetResultFilesHoldInteriors(bool interiors) { mInteriorFiles = interiors; }

    // 0 on success; 1 without a log or subvolume logs, or when the images can't be set up;
    // otherwise the first failing step's code (5 when the output doesn't take the stack
    // whole, or a binned output can't be moved aside for the last pass; 1 when the last pass
    // can't read the output back, as from a device). Failures of images, files and memory pass
    // through as exceptions.
    virtual uint16_t Blend();

    // Blending as the restorations come (cBlendingBand), in place of Blend, for a stack cut
    // into rows and columns of tiles whose one final state goes to a regular file, when a
    // band of the output, as wide as the stack and one tile high, takes no more than `room`
    // bytes. Called after SetLog and before the first restoration: true when the blending
    // takes the run. The output is then open, to be replaced; AddRestored takes each
    // restored subvolume (of the padded size), in the order of the subvolume logs, and
    // FinishStreamed ends the blending as Blend would, with its codes. False: nothing was
    // written, and Blend blends the result files after the restorations.
    bool StartStreamed(int64_t room);
    // The memory a started streamed blending holds for its band; 0 before.
    uint64_t StreamedBytes() const { return mBand ? mBand->Bytes() : 0; }
    // False when the blending took a pixel of the restoration that is not a finite number.
    bool AddRestored(std::size_t subvolume, const cFloatImagePtr& restored);
    uint16_t FinishStreamed();
    // The steps of Blend, in their order; public so that each can be driven on its own.
    int InitBlendImages();
    int BlendVolume(const std::string& name);
    int Blend2D(const std::string& name);
    int PostProcess(const std::string& name);
    int InitPsfBlend();
    int BlendPsfVolume(const std::string& name);
    int BlendPsf2D(const std::string& name);

    const std::vector<cCountedPtr<cSubvolumeAccessor>>& GetAccessors() const { return mAccessors; }
    cFloatImagePtr GetTileImage() const { return mTileImage; }
    cFloatImagePtr GetOutputImage() const { return mOutputImage; }
    float GetMaximum() const { return mMaximum; }
    float GetMinimum() const { return mMinimum; }

private:
    // The interval and count of saved iterations; a count of 0 means the one final
    // result, and an interval of 0 saves nothing in between.
    struct cSavedStates {
        int32_t interval = 1;
        int32_t total = 1;
    };
    static cSavedStates SavedStates(const cDeconParameter& parameters, DecIntKey intervalKey);
    // Makes the slab of the stack being written that starts at slice z and writes it; 0 or a
    // step's code.
    using cSlabMaker = std::function<int(uint32_t z, cUnmanagedRawFileWriter& writer)>;
    // Writes `name` and one "_I" sibling per saved state, `slices` slices each, a slab at a
    // time. After each stack the subvolume files it came from are deleted and the next
    // state's files, the result names followed by `savedSuffix` and the iteration, are opened.
    int WriteStates(cCountedPtr<cUnmanagedRawFileWriter> writer, const std::string& name,
                    const cSavedStates& states, uint32_t slices, const std::string& savedSuffix,
                    const cSlabMaker& makeSlab);
    // Blends the `slices` slices (planes with `plane`) of every saved state, makes them
    // non-negative when that is asked for, and writes them to `name` and its siblings.
    int BlendAndWrite(const std::string& name, const cSavedStates& states, uint32_t slices,
                      bool plane);
    // The one final state, blended a slab at a time and written as blended while the
    // non-negativity step takes its first look; when a pedestal is needed, the written stack
    // is read back (`blended`, open on the output) for the second look and once more to be
    // raised and written over. The subvolume files go as soon as they are blended.
    int BlendOnceIntoOutput(cCountedPtr<cUnmanagedRawFileWriter>& writer,
                            cUnmanagedRawFileReader& blended, uint32_t slices, bool plane);
    // The accessors (opening the result files with `openFiles`, else taking the geometry
    // alone), the images and the non-negativity step; 0 or Blend's code.
    int SetUp(bool openFiles);
    // After the stack is written: the stack's range, the last pass and the PSF mosaic.
    uint16_t Conclude();
    // After the first look at the written stack: the second look and the pedestal when one
    // is needed (`blended` reads the output back), then the durable close.
    int FinishOutput(cCountedPtr<cUnmanagedRawFileWriter>& writer,
                     cUnmanagedRawFileReader& blended, uint32_t slices);
    // Blends the slab of stack slices from z into the output image; with `plane`, stack
    // plane z from the subvolumes restored for it. 0 or a step's code.
    int BlendSlab(uint32_t z, bool plane);
    // Blends, makes non-negative and writes the slab from z.
    int WriteSlab(uint32_t z, bool plane, cUnmanagedRawFileWriter& writer);
    // With a whole-stack non-negativity step: blends the `slices` slices slab by slab
    // (blendSlab(z) leaves the slab from z in the output image) and lets the step look at
    // them, once or twice, before anything is written. 0 or the code of a failed blend.
    int LookAtTheBlendedStack(uint32_t slices, const std::function<int(uint32_t z)>& blendSlab);
    // Every subvolume of stack slice z reads its one plane into the mosaic of PSFs.
    void ReadPlane(uint32_t z);
    uint32_t StackDepth() const;
    // Width and height of the blended stack: the stack's size, over the bin factor.
    cImageDimensions BlendedSliceSize() const;
    void ReportPsfProgress(int16_t subvolume) const;
    void SetUpImages(const cImageDimensions& tile, const cImageDimensions& output);
    // The weights of tile (x, y) of a slice, made on first use and kept for the blending.
    const cFloatImagePtr& MaskOf(const cImageDimensions& index);

    cSubvolumeLogList mSubvolumeLogs;
    cCountedPtr<cDeconLog> mLog;
    cFloatImagePtr mRestoredInMemory;
    bool mInteriorFiles = false;
    cCountedPtr<cBlendingMaskCreator> mMaskCreator;
    // The masks of the tiles of one slice, row by row, as MaskOf makes them: together
    // about one slice of the stack, against one to four image products per tile and slice.
    std::vector<cFloatImagePtr> mMasks;
    // One subvolume's interior, for weighting (none when tiles are copied); for PSFs, the
    // mosaic.
    cFloatImagePtr mTileImage;
    // A slab of the blended stack, at the stack's width and height.
    cFloatImagePtr mOutputImage;
    std::vector<cCountedPtr<cSubvolumeAccessor>> mAccessors;
    // The accessors in the order their tiles are added: by plane, row and column.
    std::vector<std::size_t> mTileOrder;
    // Slices per slab: the stack's depth, or 1.
    uint32_t mSlab = 1;
    // The first slice of the slab blended into the output image, -1 when there is none.
    int64_t mBlendedSlab = -1;
    bool mWeighted = false;
    uint32_t mOverlap = 0;
    cImageDimensions mCounts{1, 1, 1};
    cImageDimensions mSize{1, 1, 1};
    cCountedPtr<cImageStatistics> mStatistics;
    float mMaximum = 0.0f;
    float mMinimum = 0.0f;
    ovdStatusCallback mCallback = nullptr;
    void* mUserData = nullptr;
    // The band, the output and its reader of a blending that takes the restorations as
    // they come.
    cCountedPtr<cBlendingBand> mBand;
    cCountedPtr<cUnmanagedRawFileWriter> mStreamedWriter;
    cCountedPtr<cUnmanagedRawFileReader> mStreamedReader;
    // Set when the non-negativity step is the blending's, for the whole stack.
    cCountedPtr<cStackNonNegativity> mNonNegativity;
};

} // namespace Ovidane
