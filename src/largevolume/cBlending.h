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
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/SubvolumeLogList.h"
#include "largevolume/cBlendingMaskCreator.h"
#include "largevolume/cStackNonNegativity.h"
#include "largevolume/cSubvolumeAccessor.h"

namespace Ovidane {

class cImageStatistics;

// Puts the restored subvolumes back together into the output stack. It works one stack
// slice at a time: the matching interior slice of every subvolume goes into a mosaic (the
// tile image), each tile is weighted by its seam masks, and the tiles are added into the
// output slice at positions that overlap by the subvolume overlap. Only slices are ever in
// memory. A last pass over the written file then undoes what the preparation did to the
// whole stack (inversion of transmitted-light data, binning). Subvolume PSFs, when saved,
// are laid side by side into one PSF file without weights.
//
// Use: SetStatistics, SetSubvolumeLogs, SetLog (a copy of the run's log whose
// DEC_SPARAMS_ORIGINAL_FILE names the output), optionally SetStatusCallback, Blend. The
// subvolume result files, of every saved iteration, and their PSF files are deleted on
// the way; the output file and its "_I" siblings stay. Outputs are written through the
// names given: emptied in place, never deleted and made anew (see OpenEmptied of the raw
// writer), and the transmitted-light pass turns the written file in place.
//
// When the subvolumes were restored for the whole stack (DEC_BPARAMS_STACK_ESTIMATES, no
// phase object), the blended stack is made non-negative here, with one pedestal for the
// whole stack (cStackNonNegativity): it is blended and looked at before it is written, so
// the output is still written once, and may be a device or a pipe.
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

    // 0 on success; 1 without a log or subvolume logs, or when the images can't be set up;
    // otherwise the first failing step's code (5 when the output doesn't take the stack
    // whole, or a binned output can't be moved aside for the last pass; 1 when the last pass
    // can't read the output back, as from a device). Failures of images, files and memory pass
    // through as exceptions.
    virtual uint16_t Blend();

    // The steps of Blend, in their order; public so that each can be driven on its own.
    int InitBlendImages();
    int BlendVolume(const std::string& name);
    int Blend2D(const std::string& name);
    int BlendSlice();
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
    // Makes slice z of the stack being written and writes it; 0 or a step's code.
    using cSliceMaker = std::function<int(uint32_t z, cUnmanagedRawFileWriter& writer)>;
    // Writes `name` and one "_I" sibling per saved state, `slices` slices each. After each
    // stack the subvolume files it came from are deleted and the next state's files,
    // the result names followed by `savedSuffix` and the iteration, are opened.
    int WriteStates(const std::string& name, const cSavedStates& states, uint32_t slices,
                    const std::string& savedSuffix, const cSliceMaker& makeSlice);
    // The blended slice size, checked against the output image.
    cImageDimensions CheckedSliceSize(const char* operation) const;
    // With a whole-stack non-negativity step: blends the `slices` slices (blendSlice(z)
    // leaves slice z in the output image) and lets the step look at them, once or twice,
    // before anything is written. 0 or the code of a failed blend.
    int LookAtTheBlendedStack(uint32_t slices, const cImageDimensions& slice,
                              const std::function<int(uint32_t z)>& blendSlice);
    // Every subvolume of stack slice z reads its one plane into the mosaic.
    void ReadPlane(uint32_t z);
    uint32_t StackDepth() const;
    // Width and height of the blended stack: the stack's size, over the bin factor.
    cImageDimensions BlendedSliceSize() const;
    void ReportPsfProgress(int16_t subvolume) const;
    void SetUpImages(const cImageDimensions& tile, const cImageDimensions& output);

    cSubvolumeLogList mSubvolumeLogs;
    cCountedPtr<cDeconLog> mLog;
    cCountedPtr<cBlendingMaskCreator> mMaskCreator;
    cFloatImagePtr mTileImage;
    cFloatImagePtr mOutputImage;
    std::vector<cCountedPtr<cSubvolumeAccessor>> mAccessors;
    uint32_t mOverlap = 0;
    cImageDimensions mCounts{1, 1, 1};
    cImageDimensions mSize{1, 1, 1};
    cCountedPtr<cImageStatistics> mStatistics;
    float mMaximum = 0.0f;
    float mMinimum = 0.0f;
    ovdStatusCallback mCallback = nullptr;
    void* mUserData = nullptr;
    // Set when the non-negativity step is the blending's, for the whole stack.
    cCountedPtr<cStackNonNegativity> mNonNegativity;
};

} // namespace Ovidane
