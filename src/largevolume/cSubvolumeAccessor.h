#pragma once
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cOvdImage.h"
#include "io/cUnmanagedRawFileReader.h"

namespace Ovidane {

// The blending's handle on one restored subvolume: it knows the subvolume's padded file (or
// the restored subvolume itself, kept in memory), where the interior lies in it, and where
// the interior goes in the mosaic of one stack slice. Reads are whole file slices, so each
// subvolume file is read front to back once per pass.
class cSubvolumeAccessor : public cOvdObject {
public:
    cSubvolumeAccessor();
    ~cSubvolumeAccessor() override;

    // Takes the geometry from a subvolume's log (padded size, guard bands, overlap, index,
    // counts) and opens the result file named by DEC_SPARAMS_OUTPUT_IMAGE_FILE. Fails
    // when the file can't be opened: a restoration that left no result has nothing to
    // blend, and zeros in its place would pass unnoticed. With `restored`, the restored
    // subvolume itself (of the padded size, kept in memory and never written to that
    // file), reads come from it until a file is opened. With `interiorFile`, the result
    // file holds the interior alone (InteriorOf), without the guard bands.
    void Setup(const cCountedPtr<cDeconLog>& log,
               const cFloatImagePtr& restored = cFloatImagePtr(), bool interiorFile = false);

    // Setup's geometry alone, with no file opened: for a blending that is handed each
    // restored subvolume as it comes.
    void TakeGeometry(const cCountedPtr<cDeconLog>& log);
    // Where a subvolume's interior lies in its padded subvolume, from the subvolume's log:
    // the padded box less the guard bands. Fails when the bands leave nothing.
    static cImageBox InteriorOf(const cDeconParameter& parameters);

    // Copies interior slice z of the open file into this subvolume's tile of the mosaic:
    // columns index.x * interior.x onwards, rows index.y * interior.y onwards, slice 0. A
    // short read leaves the missing pixels as they were and is noted by the reader.
    void ReadSlice(uint32_t z, const cFloatImagePtr& mosaic);
    // Copies interior slices z onwards into `box` of the image: the interior's first rows,
    // columns and slices, as many as the box has. The box may be smaller than the interior
    // (the part of a tile that lies inside the stack), never larger.
    void ReadInterior(uint32_t z, const cFloatImagePtr& image, const cImageBox& box);

    // Closes the open file and opens `name`, a file of the padded size: the result of a
    // saved iteration (padded, as the restoration saved it).
    void OpenFile(const std::string& name);
    // The same for a PSF file, whose size is keys 1 to 3 of `log`.
    void OpenPsfFile(const std::string& name, const cCountedPtr<cDeconLog>& log);
    // Closes the open file and deletes it and the result file.
    void CloseAndDelete();

    const cImageDimensions& GetInteriorSize() const { return mInterior; }
    const cImageDimensions& GetIndex() const { return mIndex; }
    const cImageDimensions& GetLowGuardBand() const { return mLowBand; }
    const cImageDimensions& GetHighGuardBand() const { return mHighBand; }
    const cImageDimensions& GetSubvolumeCount() const { return mCount; }
    const cImageDimensions& GetPaddedSize() const { return mPadded; }
    uint32_t GetOverlap() const { return mOverlap; }
    const std::string& GetResultFileName() const { return mResultFile; }
    const std::string& GetOpenFileName() const { return mOpenFile; }
    // Text of the latest short read, empty while there was none.
    std::string GetLastError() const;

    // A PSF has no guard bands to cut away: the blending lays whole padded PSFs side by
    // side by setting the bands to 0 and the interior to the padded size.
    void SetInteriorSize(const cImageDimensions& size) { mInterior = size; }
    void SetLowGuardBand(const cImageDimensions& band) { mLowBand = band; }
    void SetHighGuardBand(const cImageDimensions& band) { mHighBand = band; }

private:
    void Open(const std::string& name, const cImageDimensions& size);
    void Close();

    cImageDimensions mInterior{1, 1, 1};
    cImageDimensions mIndex{0, 0, 0};
    cImageDimensions mLowBand{0, 0, 0};
    cImageDimensions mHighBand{0, 0, 0};
    cImageDimensions mCount{1, 1, 1};
    cImageDimensions mPadded{1, 1, 1};
    uint32_t mOverlap = 0;
    cCountedPtr<cUnmanagedRawFileReader> mReader;
    cFloatImagePtr mRestored;
    // Whether the open file holds the interior alone, not the padded subvolume.
    bool mFileHoldsInterior = false;
    std::string mResultFile;
    std::string mOpenFile;
};

} // namespace Ovidane
