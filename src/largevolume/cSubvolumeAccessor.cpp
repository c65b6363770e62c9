#include "largevolume/cSubvolumeAccessor.h"
#include "core/cException.h"
#include "math/cImageMathManager.h"
#include "platform/MemoryFiles.h"

#include <cstdio>

namespace Ovidane {

namespace {

// Sizes and indices are stored as signed ints in the log; a negative one is no size.
uint32_t Unsigned(const cDeconParameter& parameters, DecIntKey key) {
    const int32_t value = parameters.GetInt(key);
    return value < 0 ? 0u : static_cast<uint32_t>(value);
}

cImageDimensions Triple(const cDeconParameter& parameters, DecIntKey x, DecIntKey y, DecIntKey z) {
    return {Unsigned(parameters, x), Unsigned(parameters, y), Unsigned(parameters, z)};
}

} // namespace

cSubvolumeAccessor::cSubvolumeAccessor() : cOvdObject("cSubvolumeAccessor") {}

cSubvolumeAccessor::~cSubvolumeAccessor() {
    Close();
}

cImageBox cSubvolumeAccessor::InteriorOf(const cDeconParameter& p) {
    const cImageDimensions padded = Triple(p, DEC_IPARAMS_SUBVOLUME_WIDTH,
                                           DEC_IPARAMS_SUBVOLUME_HEIGHT, DEC_IPARAMS_SUBVOLUME_DEPTH);
    const cImageDimensions low = Triple(p, DEC_IPARAMS_SUBVOLUME_X1GUARDBAND,
                                        DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND,
                                        DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND);
    const cImageDimensions high = Triple(p, DEC_IPARAMS_SUBVOLUME_X2GUARDBAND,
                                         DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND,
                                         DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND);
    const uint64_t bandsX = uint64_t{low.x} + high.x;
    const uint64_t bandsY = uint64_t{low.y} + high.y;
    const uint64_t bandsZ = uint64_t{low.z} + high.z;
    if (bandsX >= padded.x || bandsY >= padded.y || bandsZ >= padded.z)
        throw cException("cSubvolumeAccessor", "Invalid Dimensions in Setup", 2);
    return {low.x, low.y, low.z, static_cast<uint32_t>(padded.x - high.x - 1),
            static_cast<uint32_t>(padded.y - high.y - 1),
            static_cast<uint32_t>(padded.z - high.z - 1)};
}

void cSubvolumeAccessor::Setup(const cCountedPtr<cDeconLog>& log, const cFloatImagePtr& restored,
                               bool interiorFile) {
    Guard([&] {
        TakeGeometry(log);
        if (restored.IsNull()) {
            Open(mResultFile, interiorFile ? mInterior : mPadded);
            mFileHoldsInterior = interiorFile;
            return;
        }
        if (!(restored->GetDimensions() == mPadded))
            Fail("Invalid Dimensions in Setup", 2);
        Close();
        mOpenFile = mResultFile;
        mRestored = restored;
    });
}

void cSubvolumeAccessor::TakeGeometry(const cCountedPtr<cDeconLog>& log) {
    Guard([&] {
        if (!log)
            Fail("NULL log in Setup", 2);
        const cDeconParameter& p = log->GetParameters();
        mPadded = Triple(p, DEC_IPARAMS_SUBVOLUME_WIDTH, DEC_IPARAMS_SUBVOLUME_HEIGHT,
                         DEC_IPARAMS_SUBVOLUME_DEPTH);
        mResultFile = p.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE);
        mLowBand = Triple(p, DEC_IPARAMS_SUBVOLUME_X1GUARDBAND, DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND,
                          DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND);
        mHighBand = Triple(p, DEC_IPARAMS_SUBVOLUME_X2GUARDBAND, DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND,
                           DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND);
        mOverlap = Unsigned(p, DEC_IPARAMS_SUBVOLUME_OVERLAP);
        mIndex = Triple(p, DEC_IPARAMS_SUBVOLUME_XINDEX, DEC_IPARAMS_SUBVOLUME_YINDEX,
                        DEC_IPARAMS_SUBVOLUME_ZINDEX);
        mCount =
            Triple(p, DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES,
                   DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES);
        const cImageBox interior = InteriorOf(p);
        mInterior = {interior.x1 - interior.x0 + 1, interior.y1 - interior.y0 + 1,
                     interior.z1 - interior.z0 + 1};
    });
}

void cSubvolumeAccessor::ReadSlice(uint32_t z, const cFloatImagePtr& mosaic) {
    Guard([&] {
        if (!mosaic)
            Fail("NULL input image in ReadSlice", 2);
        const uint64_t x0 = uint64_t{mIndex.x} * mInterior.x;
        const uint64_t y0 = uint64_t{mIndex.y} * mInterior.y;
        if (x0 + mInterior.x > mosaic->GetSizeX() || y0 + mInterior.y > mosaic->GetSizeY())
            Fail("Roi out of bounds in ReadSlice", 2);
        const uint32_t tx = static_cast<uint32_t>(x0), ty = static_cast<uint32_t>(y0);
        ReadInterior(z, mosaic, {tx, ty, 0, tx + mInterior.x - 1, ty + mInterior.y - 1, 0});
    });
}

void cSubvolumeAccessor::ReadInterior(uint32_t z, const cFloatImagePtr& image,
                                      const cImageBox& box) {
    Guard([&] {
        if (!image)
            Fail("NULL input image in ReadInterior", 2);
        if (!mReader && !mRestored)
            Fail("No open file in ReadInterior", 2);
        if (box.x1 < box.x0 || box.y1 < box.y0 || box.z1 < box.z0 ||
            box.x1 - box.x0 >= mInterior.x || box.y1 - box.y0 >= mInterior.y ||
            uint64_t{z} + (box.z1 - box.z0) >= mInterior.z)
            Fail("Invalid Dimensions in ReadInterior", 2);
        if (box.x1 >= image->GetSizeX() || box.y1 >= image->GetSizeY() ||
            box.z1 >= image->GetSizeZ())
            Fail("Roi out of bounds in ReadInterior", 2);
        // The interior's part in the padded subvolume, or in a file of the interior alone.
        const cImageDimensions band =
            mFileHoldsInterior && !mRestored ? cImageDimensions{0, 0, 0} : mLowBand;
        const uint32_t x0 = band.x, y0 = band.y, z0 = band.z + z;
        const uint32_t x1 = x0 + (box.x1 - box.x0), y1 = y0 + (box.y1 - box.y0);
        const uint32_t z1 = z0 + (box.z1 - box.z0);
        if (mRestored) {
            cImageMathManager::Instance().GetImageMath()->CopyRectangularRoi(
                mRestored, image, {x0, y0, z0, x1, y1, z1}, box);
            return;
        }
        // The reader takes whole file slices and copies the box's rows out of them.
        mReader->ReadRegion(image, x0, y0, z0, x1, y1, z1, box.x0, box.y0, box.z0, box.x1, box.y1,
                            box.z1);
    });
}

void cSubvolumeAccessor::OpenFile(const std::string& name) {
    Guard([&] { Open(name, mPadded); });
}

void cSubvolumeAccessor::OpenPsfFile(const std::string& name, const cCountedPtr<cDeconLog>& log) {
    Guard([&] {
        if (!log)
            Fail("NULL log in OpenPsfFile", 2);
        const cImageDimensions size =
            Triple(log->GetParameters(), DEC_IPARAMS_SUBVOLUME_WIDTH, DEC_IPARAMS_SUBVOLUME_HEIGHT,
                   DEC_IPARAMS_SUBVOLUME_DEPTH);
        Open(name, size);
    });
}

void cSubvolumeAccessor::CloseAndDelete() {
    Guard([&] {
        Close();
        Platform::RemoveFile(mResultFile);
        if (!mOpenFile.empty() && mOpenFile != mResultFile)
            Platform::RemoveFile(mOpenFile);
    });
}

std::string cSubvolumeAccessor::GetLastError() const {
    return mReader ? mReader->GetLastError() : std::string();
}

void cSubvolumeAccessor::Open(const std::string& name, const cImageDimensions& size) {
    Close();
    mFileHoldsInterior = false;
    cCountedPtr<cUnmanagedRawFileReader> reader(
        new cUnmanagedRawFileReader(name, size.x, size.y, size.z));
    mOpenFile = name;
    if (!reader->Open())
        Fail("Cannot open " + name + " in Open", 2);
    mReader = reader;
}

void cSubvolumeAccessor::Close() {
    if (mReader)
        mReader->Close();
    mReader = cCountedPtr<cUnmanagedRawFileReader>();
    mRestored = cFloatImagePtr();
}

} // namespace Ovidane
