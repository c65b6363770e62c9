#pragma once
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cOvdImage.h"
#include "io/cUnmanagedRawFileWriter.h"

namespace Ovidane {

// Appends float slices to a raw stack file, as 8-bit, 16-bit or float elements. The
// narrower files get each slice converted into an image of that element type first; that
// image is made on first use and kept while slices keep their size, so a pass converts
// without allocating per slice.
class cTypedSliceWriter : public cOvdObject {
public:
    // Element types of the file, by their size in bytes.
    enum : uint32_t { kByte = 1, kShort = 2, kFloat = 4 };

    static bool IsKnownType(uint32_t type) {
        return type == kByte || type == kShort || type == kFloat;
    }

    // Makes a writer on `fileName` and opens it. A file that can't be opened shows at the
    // first write, which then comes up short.
    explicit cTypedSliceWriter(const std::string& fileName);

    // Appends `slice` (all its planes) with elements of `type`. False, with nothing
    // written, for a null slice or an unknown type; false as well when the write came up
    // short (a full disk), which GetLastError() then describes.
    bool Write(const cFloatImagePtr& slice, uint32_t type);

    // Closes the file, without forcing it to the disk: these files feed the next stage of
    // a run. True when every write reached the file whole.
    bool Close();

    std::string GetFileName() const { return mWriter->GetFileName(); }
    // Empty while nothing failed.
    const std::string& GetLastError() const { return mWriter->GetLastError(); }

private:
    template <class T> void Convert(const cFloatImagePtr& slice, cCountedPtr<cOvdImage<T>>& target);

    cCountedPtr<cUnmanagedRawFileWriter> mWriter;
    cCountedPtr<cOvdImage<uint16_t>> mShortImage;
    cCountedPtr<cOvdImage<uint8_t>> mByteImage;
    cCountedPtr<cImageBox> mBox;
};

} // namespace Ovidane
