#include "largevolume/cBlending.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <tuple>

#include "decon/cImageNonNegativityLinearCompressionConstraint.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/cBinning.h"
#include "largevolume/cImageStatistics.h"
#include "largevolume/cLargeVolumeProcessingFramework.h"
#include "largevolume/WeightedTile.h"
#include "largevolume/cTLBInversion.h"
#include "math/cImageMathManager.h"
#include "platform/MemoryFiles.h"
#include "platform/cRawFileHandle.h"

namespace Ovidane {

namespace {

// Code of a blending whose output can't be written or moved aside.
constexpr int kOutputFailed = 5;

std::string IterationName(const std::string& name, int32_t iteration) {
    return name + "_I" + std::to_string(iteration);
}

// A writer on `name` that replaces the file, since stale bytes behind a shorter stack would
// pass for pixels. The file is written through the name the host gave, not deleted and made
// anew: an output named by a symbolic link is written where the link points, one with other
// hard links stays shared, and a device stays a device.
cCountedPtr<cUnmanagedRawFileWriter> OpenWriter(const std::string& name) {
    cCountedPtr<cUnmanagedRawFileWriter> writer(new cUnmanagedRawFileWriter(name));
    writer->OpenToReplace();
    return writer;
}

// Closes the writer; false when a write came up short or the data didn't reach the disk.
// These are the files the host keeps, the only ones a run forces to the disk.
bool CloseWriter(cCountedPtr<cUnmanagedRawFileWriter>& writer) {
    const bool closed = writer->CloseDurably();
    const bool complete = closed && writer->GetLastError().empty();
    writer = cCountedPtr<cUnmanagedRawFileWriter>();
    return complete;
}

} // namespace

cBlending::cBlending() : cOvdObject("cBlending"), mMaskCreator(new cBlendingMaskCreator) {}

cBlending::~cBlending() = default;

void cBlending::SetStatistics(const cCountedPtr<cImageStatistics>& statistics) {
    Guard([&] { mStatistics = statistics; });
}

void cBlending::SetStatusCallback(ovdStatusCallback callback, void* userData) {
    mCallback = callback;
    mUserData = userData;
}

void cBlending::SetStatusCallback(ovdStatusCallback callback) {
    SetStatusCallback(callback, nullptr);
}

void cBlending::SetSubvolumeLogs(const cSubvolumeLogList& logs) {
    Guard([&] { mSubvolumeLogs = logs; });
}

void cBlending::SetLog(const cCountedPtr<cDeconLog>& log) {
    Guard([&] { mLog = log; });
}

cCountedPtr<cDeconLog> cBlending::GetLog() {
    return Guard([&] { return mLog; });
}

uint16_t cBlending::Blend() {
    return Guard([&]() -> uint16_t {
        if (int result = SetUp(true))
            return static_cast<uint16_t>(result);
        const cDeconParameter& p = mLog->GetParameters();
        const std::string output = p.GetString(DEC_SPARAMS_ORIGINAL_FILE);
        if (int result = p.GetBool(DEC_BPARAMS_IS_2D) ? Blend2D(output) : BlendVolume(output))
            return static_cast<uint16_t>(result);
        return Conclude();
    });
}

int cBlending::SetUp(bool openFiles) {
    if (!mLog || !mSubvolumeLogs || mSubvolumeLogs->empty())
        return 1;
    const std::vector<cCountedPtr<cDeconLog>>& logs = *mSubvolumeLogs;
    for (const cCountedPtr<cDeconLog>& log : logs)
        if (!log)
            return 1;
    mAccessors.clear();
    for (const cCountedPtr<cDeconLog>& log : logs) {
        cCountedPtr<cSubvolumeAccessor> accessor(new cSubvolumeAccessor);
        if (openFiles)
            accessor->Setup(log, logs.size() == 1 ? mRestoredInMemory : cFloatImagePtr(),
                            mInteriorFiles);
        else
            accessor->TakeGeometry(log);
        mAccessors.push_back(accessor);
    }
    if (int result = InitBlendImages())
        return result;

    const cDeconParameter& p = mLog->GetParameters();
    mNonNegativity = cCountedPtr<cStackNonNegativity>();
    if (p.GetBool(DEC_BPARAMS_STACK_ESTIMATES) && !p.GetBool(DEC_BPARAMS_IS_PHASEOBJECT)) {
        const cImageDimensions slice = BlendedSliceSize();
        mNonNegativity = new cStackNonNegativity(
            p.GetReal(DEC_RPARAMS_STACK_SUM),
            cImageNonNegativityLinearCompressionConstraint::kToleratedNegativeShare,
            double(slice.x) * slice.y * StackDepth());
    }
    return 0;
}

uint16_t cBlending::Conclude() {
    // The stack's range after restoration: the last pass turns transmitted-light data back
    // within it.
    const std::vector<cCountedPtr<cDeconLog>>& logs = *mSubvolumeLogs;
    mMaximum = logs.front()->GetParameters().GetReal(DEC_RPARAMS_IMAGE_MAXIMUM);
    mMinimum = logs.front()->GetParameters().GetReal(DEC_RPARAMS_IMAGE_MINIMUM);
    for (const cCountedPtr<cDeconLog>& log : logs) {
        const cDeconParameter& p = log->GetParameters();
        mMaximum = std::max(mMaximum, p.GetReal(DEC_RPARAMS_IMAGE_MAXIMUM));
        mMinimum = std::min(mMinimum, p.GetReal(DEC_RPARAMS_IMAGE_MINIMUM));
    }
    const cDeconParameter& p = mLog->GetParameters();
    int result = PostProcess(p.GetString(DEC_SPARAMS_ORIGINAL_FILE));

    if (p.GetBool(DEC_BPARAMS_SAVE_PSF)) {
        for (std::size_t i = 0; i < mAccessors.size(); ++i) {
            const cCountedPtr<cDeconLog>& log = logs[i];
            cSubvolumeAccessor& accessor = *mAccessors[i];
            accessor.OpenPsfFile(log->GetParameters().GetString(DEC_SPARAMS_OUTPUT_PSF_FILE),
                                 log);
            accessor.SetLowGuardBand({0, 0, 0});
            accessor.SetHighGuardBand({0, 0, 0});
            accessor.SetInteriorSize(accessor.GetPaddedSize());
        }
        if (int psfResult = InitPsfBlend())
            return static_cast<uint16_t>(psfResult);
        const std::string psfOutput = p.GetString(DEC_SPARAMS_OUTPUT_PSF_FILE);
        const int psfResult = p.GetBool(DEC_BPARAMS_IS_2D) ? BlendPsf2D(psfOutput)
                                                           : BlendPsfVolume(psfOutput);
        // A failed last pass is not hidden by a good PSF mosaic.
        if (result == 0)
            result = psfResult;
    }
    return static_cast<uint16_t>(result);
}

bool cBlending::StartStreamed(int64_t room) {
    return Guard([&] {
        mBand = cCountedPtr<cBlendingBand>();
        if (SetUp(false) != 0 || mAccessors.size() < 2 || !mWeighted)
            return false;
        const cDeconParameter& p = mLog->GetParameters();
        // One stack is written: the final state, with no saved iteration before it.
        const cSavedStates states = SavedStates(p, DEC_IPARAMS_SAVE_INTERVAL);
        if (p.GetBool(DEC_BPARAMS_IS_2D) || states.interval < states.total)
            return false;
        // The band takes the tiles in the order the restorations make them.
        for (std::size_t i = 0; i < mTileOrder.size(); ++i)
            if (mTileOrder[i] != i || mAccessors[i]->GetSubvolumeCount().z > 1)
                return false;
        const cBlendingBand::cLayout layout{
            {BlendedSliceSize().x, BlendedSliceSize().y, StackDepth()}, mCounts, mSize, mOverlap};
        if (layout.counts.y > 1 && layout.size.y < 2 * layout.overlap)
            return false;
        if (cBlendingBand::BandBytes(layout) > uint64_t(std::max<int64_t>(0, room)))
            return false;
        // The bands go anywhere in the output, and the second look and the pedestal read it
        // back: an output that stands already must be a plain file that can be read, which
        // is asked before the writer empties it. One that doesn't stand is made here.
        const std::string name = p.GetString(DEC_SPARAMS_ORIGINAL_FILE);
        std::error_code missing;
        if (std::filesystem::exists(name, missing)) {
            Platform::cRawFileHandle standing;
            if (!standing.Open(name, Platform::cRawFileHandle::Access::Read) ||
                !standing.IsRegularFile())
                return false;
        }
        cCountedPtr<cUnmanagedRawFileWriter> writer = OpenWriter(name);
        mStreamedReader = new cUnmanagedRawFileReader(name);
        if (!writer->IsRegularFile() || (mNonNegativity && !mStreamedReader->Open())) {
            mStreamedReader = cCountedPtr<cUnmanagedRawFileReader>();
            return false;
        }
        mStreamedWriter = writer;
        mBand = new cBlendingBand(layout, writer, mNonNegativity);
        return true;
    });
}

bool cBlending::AddRestored(std::size_t subvolume, const cFloatImagePtr& restored) {
    return Guard([&] {
        if (!mBand || subvolume >= mAccessors.size() || !restored)
            Fail("No streamed blending for AddRestored", OVD_ERR_PARAMETER);
        const cSubvolumeAccessor& accessor = *mAccessors[subvolume];
        if (!(restored->GetDimensions() == accessor.GetPaddedSize()))
            Fail("Invalid Dimensions in AddRestored", OVD_ERR_PARAMETER);
        return mBand->Add(accessor.GetIndex(), *restored, accessor.GetLowGuardBand(),
                          *MaskOf(accessor.GetIndex()));
    });
}

uint16_t cBlending::FinishStreamed() {
    return Guard([&]() -> uint16_t {
        if (!mBand || !mBand->IsComplete())
            Fail("Streamed blending not complete in FinishStreamed", OVD_ERR_PARAMETER);
        mBand = cCountedPtr<cBlendingBand>();
        // The result files that were named for the restorations and never written.
        for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
            accessor->CloseAndDelete();
        const uint32_t slices = StackDepth();
        if (int result = FinishOutput(mStreamedWriter, *mStreamedReader, slices))
            return static_cast<uint16_t>(result);
        mStreamedReader = cCountedPtr<cUnmanagedRawFileReader>();
        return Conclude();
    });
}

void cBlending::SetUpImages(const cImageDimensions& tile, const cImageDimensions& output) {
    mTileImage = cFloatImagePtr();
    mOutputImage = cFloatImagePtr();
    mBlendedSlab = -1;
    if (tile.x > 0)
        mTileImage = new cOvdImage<float>(tile, Contiguous3D, GetObjectName());
    mOutputImage = new cOvdImage<float>(output, Contiguous3D, GetObjectName());
}

int cBlending::InitBlendImages() {
    return Guard([&] {
        if (mAccessors.empty())
            return 1;
        const cSubvolumeAccessor& first = *mAccessors.front();
        mOverlap = first.GetOverlap();
        mCounts = first.GetSubvolumeCount();
        mSize = {first.GetInteriorSize().x, first.GetInteriorSize().y, 1};
        const uint64_t nx = mCounts.x, ny = mCounts.y;
        if (nx == 0 || ny == 0 || (nx > 1 && mOverlap >= mSize.x) ||
            (ny > 1 && mOverlap >= mSize.y))
            Fail("Invalid Dimensions in InitBlendImages", 2);
        // Tiles advance by their size less the overlap. Interior sizes are rounded up, so
        // the tiles may reach past the stack; what lies beyond it is never read.
        const cImageDimensions slice = BlendedSliceSize();
        if (slice.x == 0 || slice.y == 0 || mSize.x * nx - (nx - 1) * mOverlap < slice.x ||
            mSize.y * ny - (ny - 1) * mOverlap < slice.y)
            Fail("Invalid Dimensions in InitBlendImages", 2);
        mWeighted = (nx > 1 || ny > 1) && mOverlap > 0;
        mSlab = 1;
        mTileOrder.clear();
        for (std::size_t i = 0; i < mAccessors.size(); ++i)
            mTileOrder.push_back(i);
        // Tiles are added in rows, as the seams' sums were defined.
        std::sort(mTileOrder.begin(), mTileOrder.end(), [&](std::size_t a, std::size_t b) {
            const cImageDimensions& p = mAccessors[a]->GetIndex();
            const cImageDimensions& q = mAccessors[b]->GetIndex();
            return std::tie(p.z, p.y, p.x) < std::tie(q.z, q.y, q.x);
        });
        // A stack restored in one piece is blended whole when it takes no more than one
        // working image of the run: every look and the write then read the one blend, in a
        // few passes over the whole stack instead of many small ones per slice.
        const cDeconParameter& p = mLog->GetParameters();
        const uint32_t depth = first.GetInteriorSize().z;
        const double stackBytes = double(slice.x) * slice.y * depth * sizeof(float);
        if (mAccessors.size() == 1 && !p.GetBool(DEC_BPARAMS_IS_2D) &&
            stackBytes <= double(p.GetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE)))
            mSlab = depth;
        const cImageDimensions tile{mWeighted ? mSize.x : 0, mSize.y, mSlab};
        SetUpImages(tile, {slice.x, slice.y, mSlab});
        mMaskCreator->Setup(mCounts, mSize, mOverlap);
        mMasks.assign(mWeighted ? std::size_t{mCounts.x} * mCounts.y : 0, cFloatImagePtr());
        return 0;
    });
}

int cBlending::InitPsfBlend() {
    return Guard([&] {
        if (mAccessors.empty())
            return 1;
        const cSubvolumeAccessor& first = *mAccessors.front();
        // PSFs are laid side by side, whole: no overlap, no weights.
        mOverlap = 0;
        mCounts = first.GetSubvolumeCount();
        mSize = {first.GetPaddedSize().x, first.GetPaddedSize().y, 1};
        const cImageDimensions mosaic{mSize.x * mCounts.x, mSize.y * mCounts.y, 1};
        mSlab = 1;
        SetUpImages(mosaic, mosaic);
        return 0;
    });
}

cBlending::cSavedStates cBlending::SavedStates(const cDeconParameter& parameters,
                                               DecIntKey intervalKey) {
    cSavedStates states;
    states.interval = parameters.GetInt(intervalKey);
    states.total = parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS);
    if (states.total <= 0)
        states.interval = states.total = 1;
    // Without an interval the restoration saved nothing in between: only the final result.
    if (states.interval <= 0)
        states.interval = states.total;
    return states;
}

cImageDimensions cBlending::BlendedSliceSize() const {
    const cDeconParameter& p = mLog->GetParameters();
    const int32_t bin = p.GetInt(DEC_IPARAMS_BINFACTOR);
    const int32_t divisor = bin > 1 ? bin : 1;
    return {static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH) / divisor),
            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT) / divisor), 1};
}

int cBlending::WriteStates(cCountedPtr<cUnmanagedRawFileWriter> writer, const std::string& name,
                           const cSavedStates& states, uint32_t slices,
                           const std::string& savedSuffix, const cSlabMaker& makeSlab) {
    for (int32_t i = 0; i < states.total;) {
        for (uint32_t z = 0; z < slices; z += mSlab)
            if (int result = makeSlab(z, *writer))
                return result;
        const bool written = CloseWriter(writer);
        for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
            accessor->CloseAndDelete();
        if (!written)
            return kOutputFailed;
        // The saved iterations of every subvolume, in the order the restorations made them, each
        // into a stack of its own.
        i += states.interval;
        if (i < states.total) {
            for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
                accessor->OpenFile(accessor->GetResultFileName() + savedSuffix + std::to_string(i));
            writer = OpenWriter(IterationName(name, i));
        }
    }
    return 0;
}

int cBlending::BlendVolume(const std::string& name) {
    return Guard([&] {
        if (mAccessors.empty() || !mOutputImage)
            return 1;
        // Tiles are joined in x and y only. Subvolumes stacked in z would all land in the one
        // mosaic of a slice; the cut never makes them for a run, and they are refused rather than
        // joined wrongly.
        for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
            if (accessor->GetSubvolumeCount().z > 1)
                Fail("Invalid Dimensions in BlendVolume", 2);
        return BlendAndWrite(name, SavedStates(mLog->GetParameters(), DEC_IPARAMS_SAVE_INTERVAL),
                             mAccessors.front()->GetInteriorSize().z, false);
    });
}

int cBlending::Blend2D(const std::string& name) {
    return Guard([&] {
        if (mAccessors.empty() || !mOutputImage)
            return 1;
        // Each stack slice was restored on its own, as its own set of subvolumes, all with the
        // settings of the first.
        return BlendAndWrite(
            name, SavedStates(mSubvolumeLogs->front()->GetParameters(), DEC_IPARAMS_SAVE_INTERVAL),
            StackDepth(), true);
    });
}

int cBlending::BlendAndWrite(const std::string& name, const cSavedStates& states, uint32_t slices,
                             bool plane) {
    // Looking at a stack blended slab by slab before it is written blends it once per look
    // and once more for the write, each time reading every subvolume file. One final state
    // written to a file that can be read back is blended once instead (BlendOnceIntoOutput).
    // A device still gets the stack in one write.
    cCountedPtr<cUnmanagedRawFileWriter> writer;
    if (mNonNegativity && mSlab < slices && states.total == 1) {
        writer = OpenWriter(name);
        cUnmanagedRawFileReader blended(name);
        if (writer->IsRegularFile() && blended.Open())
            return BlendOnceIntoOutput(writer, blended, slices, plane);
    }
    const auto blendSlab = [&](uint32_t z) { return BlendSlab(z, plane); };
    if (int result = LookAtTheBlendedStack(slices, blendSlab))
        return result;
    return WriteStates(
        writer ? writer : OpenWriter(name), name, states, slices, "_I",
        [&](uint32_t z, cUnmanagedRawFileWriter& out) { return WriteSlab(z, plane, out); });
}

int cBlending::BlendOnceIntoOutput(cCountedPtr<cUnmanagedRawFileWriter>& writer,
                                   cUnmanagedRawFileReader& blended, uint32_t slices, bool plane) {
    for (uint32_t z = 0; z < slices; z += mSlab) {
        if (int result = BlendSlab(z, plane))
            return result;
        mNonNegativity->FirstLook(mOutputImage);
        writer->Write(mOutputImage);
    }
    mBlendedSlab = -1;
    for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
        accessor->CloseAndDelete();
    return FinishOutput(writer, blended, slices);
}

int cBlending::FinishOutput(cCountedPtr<cUnmanagedRawFileWriter>& writer,
                           cUnmanagedRawFileReader& blended, uint32_t slices) {
    if (!writer->GetLastError().empty())
        return kOutputFailed;
    if (mNonNegativity && mNonNegativity->NeedsPedestal()) {
        // The second look, where one is needed, and the pedestal read the blended stack
        // back, slab by slab; the raised slabs go over the blended ones.
        for (int pass = mNonNegativity->NeedsSecondLook() ? 0 : 1; pass < 2; ++pass) {
            if (!blended.Open())
                return kOutputFailed;
            writer->Rewind();
            for (uint32_t z = 0; z < slices; z += mSlab) {
                if (!blended.Read(mOutputImage))
                    return kOutputFailed;
                if (pass == 0) {
                    mNonNegativity->SecondLook(mOutputImage);
                    continue;
                }
                mNonNegativity->Apply(mOutputImage);
                writer->Write(mOutputImage);
            }
        }
    }
    blended.Close();
    return CloseWriter(writer) ? 0 : kOutputFailed;
}

int cBlending::WriteSlab(uint32_t z, bool plane, cUnmanagedRawFileWriter& writer) {
    if (int result = BlendSlab(z, plane))
        return result;
    if (mNonNegativity)
        mNonNegativity->Apply(mOutputImage);
    // The slab is spent: the next blend of these slices, of a saved state's files, is new.
    mBlendedSlab = -1;
    writer.Write(mOutputImage);
    return 0;
}

int cBlending::LookAtTheBlendedStack(uint32_t slices,
                                     const std::function<int(uint32_t z)>& blendSlab) {
    if (!mNonNegativity)
        return 0;
    for (int look = 1; look <= 2; ++look) {
        if (look == 2 && !(mNonNegativity->NeedsPedestal() && mNonNegativity->NeedsSecondLook()))
            break;
        for (uint32_t z = 0; z < slices; z += mSlab) {
            if (int result = blendSlab(z))
                return result;
            if (look == 1)
                mNonNegativity->FirstLook(mOutputImage);
            else
                mNonNegativity->SecondLook(mOutputImage);
        }
    }
    return 0;
}

void cBlending::ReadPlane(uint32_t z) {
    for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
        if (accessor->GetIndex().z == z)
            accessor->ReadSlice(0, mTileImage);
}

uint32_t cBlending::StackDepth() const {
    const int32_t depth = mLog->GetParameters().GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH);
    return depth > 0 ? static_cast<uint32_t>(depth) : 0u;
}

int cBlending::BlendSlab(uint32_t z, bool plane) {
    return Guard([&] {
        // A stack blended whole is blended once for all its looks.
        if (mBlendedSlab == int64_t{z})
            return 0;
        const cImageDimensions out = mOutputImage->GetDimensions();
        const uint32_t last = mSlab - 1;
        for (std::size_t i : mTileOrder) {
            cSubvolumeAccessor& accessor = *mAccessors[i];
            const cImageDimensions& index = accessor.GetIndex();
            if (plane && index.z != z)
                continue;
            // The tile's place in the stack, and the part of it that lies inside.
            const uint64_t tx = uint64_t{mSize.x - mOverlap} * index.x;
            const uint64_t ty = uint64_t{mSize.y - mOverlap} * index.y;
            if (tx >= out.x || ty >= out.y)
                continue;
            const uint32_t x0 = static_cast<uint32_t>(tx), y0 = static_cast<uint32_t>(ty);
            const uint32_t w = std::min(mSize.x, out.x - x0), h = std::min(mSize.y, out.y - y0);
            const cImageBox target{x0, y0, 0, x0 + w - 1, y0 + h - 1, last};
            const uint32_t first = plane ? 0 : z;
            if (!mWeighted) {
                accessor.ReadInterior(first, mOutputImage, target);
                continue;
            }
            // Weighted and added: where tiles overlap the output is the sum of their weighted
            // values, in the tiles' order. Earlier tiles cover the rows above and the columns
            // to the left of this one's first `overlap`.
            accessor.ReadInterior(first, mTileImage, {0, 0, 0, w - 1, h - 1, last});
            AddWeightedTile(*mTileImage, {0, 0, 0}, *MaskOf(index), *mOutputImage, w, h, x0, y0,
                            index.x > 0 ? x0 + mOverlap : x0, index.y > 0 ? y0 + mOverlap : y0);
        }
        mBlendedSlab = z;
        return 0;
    });
}

const cFloatImagePtr& cBlending::MaskOf(const cImageDimensions& index) {
    cFloatImagePtr& mask = mMasks.at(std::size_t{index.y} * mCounts.x + index.x);
    if (!mask)
        mask = mMaskCreator->GetMask(index.x, index.y);
    return mask;
}

int cBlending::PostProcess(const std::string& name) {
    return Guard([&] {
        const cDeconParameter& p = mLog->GetParameters();
        const uint32_t width = static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH));
        const uint32_t height = static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT));
        const uint32_t depth = static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH));
        const int32_t bin =
            p.GetInt(DEC_IPARAMS_BINFACTOR) > 1 ? p.GetInt(DEC_IPARAMS_BINFACTOR) : 1;
        const bool transmitted = p.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD;
        mLog->GetParameters().SetBool(DEC_BPARAMS_IS_TLB, transmitted);
        // Nothing was done to the whole stack that needs undoing.
        if (!transmitted && bin == 1)
            return 0;

        const std::string ratioFile =
            mSubvolumeLogs && !mSubvolumeLogs->empty()
                ? mSubvolumeLogs->front()->GetParameters().GetString(DEC_SPARAMS_BLEND_SOURCE_FILE)
                : std::string();
        const cSavedStates states = SavedStates(p, DEC_IPARAMS_SAVE_INTERVAL);
        cCountedPtr<cLargeVolumeProcessingFramework> framework(
            new cLargeVolumeProcessingFramework("", width / bin, height / bin, depth));
        for (int32_t i = 0; i < states.total; i += states.interval) {
            const std::string state = i == 0 ? name : IterationName(name, i);
            if (bin == 1) {
                // The inversion gives each slice back at its own size and place, and the pass
                // reads a slice before it writes it: the file is turned in place, through the
                // name the host gave, so the output stays the file (or link, or device) it was.
                // A failed pass leaves the stack partly turned, and the run reports the failure.
                cCountedPtr<cProcessingAction> inversion(new cTLBInversion(mMaximum, mMinimum));
                framework->AddAction(inversion);
                framework->SetInput(state);
                framework->SetOutput(state);
                const int result = framework->Run();
                framework->Close();
                if (result != 0)
                    return result;
                continue;
            }
            // Bringing binned slices back to full size makes the stack larger than the file it
            // is read from, so the pass reads a copy moved aside and writes the state anew. Only
            // the aberration search bins, and its stacks are files of the library's own naming.
            const std::string aside = state + ".1";
            Platform::RemoveFile(aside);
            if (std::rename(state.c_str(), aside.c_str()) != 0)
                return kOutputFailed;

            // The actions are made for each pass: a binning action closes its ratio file when a
            // pass finishes.
            if (transmitted)
                framework->AddAction(
                    cCountedPtr<cProcessingAction>(new cTLBInversion(mMaximum, mMinimum)));
            framework->AddAction(cCountedPtr<cProcessingAction>(
                new cBinning(bin, bin, width, height, 1, ratioFile, false)));
            framework->SetInput(aside);
            framework->SetOutput(state);
            const int result = framework->Run();
            framework->Close();
            if (result != 0) {
                // The state as it was blended is better than a half-written one.
                Platform::RemoveFile(state);
                std::rename(aside.c_str(), state.c_str());
                return result;
            }
            Platform::RemoveFile(aside);
        }
        framework->Close();
        if (bin > 1)
            Platform::RemoveFile(ratioFile);
        return 0;
    });
}

void cBlending::ReportPsfProgress(int16_t subvolume) const {
    if (!mCallback)
        return;
    ovdStructInvFilterStatus status{};
    status.fPercentDone = 100.0f;
    status.fMinutesLeft = 0.0f;
    status.sIteration = 0;
    status.sIterationCount = 0;
    status.sSubvolume = subvolume;
    status.sSubvolumeCount = static_cast<int16_t>(mAccessors.size());
    status.sStage = 0;
    // The PSF mosaic can't be cancelled: the answer is not looked at.
    mCallback(&status, mUserData);
}

int cBlending::BlendPsfVolume(const std::string& name) {
    return Guard([&] {
        if (mAccessors.empty() || !mTileImage)
            return 1;
        ReportPsfProgress(1);
        cCountedPtr<cUnmanagedRawFileWriter> writer = OpenWriter(name);
        const uint32_t depth = mAccessors.front()->GetPaddedSize().z;
        for (uint32_t z = 0; z < depth; ++z) {
            for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
                accessor->ReadSlice(z, mTileImage);
            writer->Write(mTileImage);
        }
        const bool written = CloseWriter(writer);
        ReportPsfProgress(1);
        for (const cCountedPtr<cSubvolumeAccessor>& accessor : mAccessors)
            accessor->CloseAndDelete();
        ReportPsfProgress(2);
        cDeconParameter& p = mLog->GetParameters();
        p.SetInt(DEC_IPARAMS_PSF_WIDTH, static_cast<int32_t>(mOutputImage->GetSizeX()));
        p.SetInt(DEC_IPARAMS_PSF_HEIGHT, static_cast<int32_t>(mOutputImage->GetSizeY()));
        p.SetInt(DEC_IPARAMS_PSF_DEPTH, static_cast<int32_t>(depth));
        return written ? 0 : kOutputFailed;
    });
}

int cBlending::BlendPsf2D(const std::string& name) {
    return Guard([&] {
        if (mAccessors.empty() || !mTileImage)
            return 1;
        const cSavedStates states =
            SavedStates(mSubvolumeLogs->front()->GetParameters(), DEC_IPARAMS_PSF_SAVE_INTERVAL);
        // Slice by slice like the image: each stack slice has its own mosaic of PSFs.
        return WriteStates(OpenWriter(name), name, states, StackDepth(), "_psf_I",
                           [&](uint32_t z, cUnmanagedRawFileWriter& writer) {
                               ReadPlane(z);
                               writer.Write(mTileImage);
                               return 0;
                           });
    });
}

} // namespace Ovidane
