#pragma once
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cImageDimensions.h"
#include "core/cOvdObject.h"
#include "image/cOvdImage.h"
#include "image/cRegionSource.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/cStackNonNegativity.h"

namespace Ovidane {

// Blends the restored subvolumes of a cut into the output as their restorations come, a row
// of tiles at a time, so that no restoration goes to a file of its own to be read back:
// each restored interior is weighted and added at once into a band of the stack, as wide as
// the stack and one tile high. When the last tile of a row is in, the rows that no later
// tile reaches are final. The non-negativity step looks at them, they go to the output in
// one write per slice, and the band's last `overlap` rows, which the next row of tiles adds
// to, move to its top. Each pixel is the sum of the same products in the same order as in a
// blending of whole slices (AddWeightedTile), so the output is the same bit for bit.
class cBlendingBand : public cOvdObject {
public:
    struct cLayout {
        cImageDimensions stack;  // the blended stack
        cImageDimensions counts; // tiles in x and y
        cImageDimensions size;   // a tile's interior in x and y
        uint32_t overlap = 0;
    };
    // The band's bytes.
    static uint64_t BandBytes(const cLayout& layout);
    // The memory of the last band is kept for the next cut; a kept band larger than `bytes`
    // goes back to the system now.
    static void KeepAtMost(uint64_t bytes);

    // `look`, when set, sees every final pixel once (its first look) before it is written.
    cBlendingBand(const cLayout& layout, const cCountedPtr<cUnmanagedRawFileWriter>& writer,
                  const cCountedPtr<cStackNonNegativity>& look);
    // Keeps the band's memory for the next cut.
    ~cBlendingBand() override;

    // Adds tile `index` of the cut, its interior read from `restored` at `origin`, weighted
    // by `mask`. Tiles come by rows, and in each row by columns; one out of turn is refused
    // with a cException of code 2. Tiles that lie wholly beyond the stack are passed over.
    // False when a pixel of the tile that it took is not a finite number: the row is then
    // not written, and the band is spent.
    bool Add(const cImageDimensions& index, const cFloatImage& restored,
             const cImageDimensions& origin, const cFloatImage& mask);
    // Whether every tile has come and the whole stack is written.
    bool IsComplete() const { return mNext == uint64_t{mLayout.counts.x} * mLayout.counts.y; }
    // The memory the band holds.
    uint64_t Bytes() const { return mBytes; }

private:
    // The last tile index along an axis that starts inside the stack.
    static uint32_t LastInside(uint32_t stack, uint32_t count, uint32_t size, uint32_t overlap);
    // Looks at and writes the final rows of tile row `row`, and carries the overlap over.
    void Finish(uint32_t row);

    cLayout mLayout;
    cCountedPtr<cUnmanagedRawFileWriter> mWriter;
    cCountedPtr<cStackNonNegativity> mLook;
    cFloatImagePtr mBand;
    void* mPixels = nullptr;
    cRegionSource* mSource = nullptr;
    std::size_t mBytes = 0;
    uint32_t mLastX = 0;
    uint32_t mLastY = 0;
    uint64_t mNext = 0;
};

} // namespace Ovidane
