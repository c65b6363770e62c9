#include "decon/PreviewPanels.h"

#include "core/DeconKeys.h"
#include "decon/PreviewFile.h"
#include "math/cImageMathManager.h"

namespace Ovidane::PreviewPanels {
namespace {

// Everything the drawing needs from the subvolume keys, with the interior sizes worked out.
struct cTile {
    uint32_t lowX, lowY, lowZ;
    uint32_t sizeX, sizeY, depth; // interior sizes
    uint32_t overlapX, overlapY;  // the overlap, where there is more than one tile on the axis
    uint32_t countX, countY;      // tiles per axis
    uint32_t indexX, indexY;      // this tile's place
};

cTile TileOf(const cDeconParameter& p, const cOvdImage<float>& image) {
    cTile t{};
    t.lowX = p.GetInt(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND);
    t.lowY = p.GetInt(DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND);
    t.lowZ = p.GetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND);
    t.sizeX = image.GetSizeX() - t.lowX - p.GetInt(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND);
    t.sizeY = image.GetSizeY() - t.lowY - p.GetInt(DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND);
    t.depth = image.GetSizeZ() - t.lowZ - p.GetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND);
    t.countX = p.GetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES);
    t.countY = p.GetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES);
    t.indexX = p.GetInt(DEC_IPARAMS_SUBVOLUME_XINDEX);
    t.indexY = p.GetInt(DEC_IPARAMS_SUBVOLUME_YINDEX);
    const uint32_t overlap = p.GetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP);
    t.overlapX = t.countX > 1 ? overlap : 0;
    t.overlapY = t.countY > 1 ? overlap : 0;
    return t;
}

cImageBox Box(uint32_t x0, uint32_t x1, uint32_t y0, uint32_t y1, uint32_t z0 = 0,
              uint32_t z1 = 0) {
    return cImageBox{x0, y0, z0, x1, y1, z1};
}

} // namespace

void Draw(const cDeconLog& log, const cFloatImagePtr& preview, const cFloatImagePtr& image,
          float dividerFactor) {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    const cDeconParameter& p = log.GetParameters();
    const cTile t = TileOf(p, *image);
    const uint32_t width = preview->GetSizeX(), height = preview->GetSizeY();
    const int32_t iteration = p.GetInt(DEC_IPARAMS_CURRENT_ITERATION);
    const bool transmitted = p.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD;

    // The dividers belong to the picture as a whole; the first pass of every subvolume draws
    // them again, which costs two lines.
    if (iteration == 0 && dividerFactor > 0) {
        const float value = dividerFactor * p.GetReal(DEC_RPARAMS_IMAGE_MAXIMUM);
        math->SetRoiToConstant(
            preview, Box(0, width - 1, height - t.depth - 1, height - t.depth - 1), value);
        math->SetRoiToConstant(preview,
                               Box(width - t.depth - 1, width - t.depth - 1, 0, height - 1), value);
    }

    // A transmitted-light preview stands inverted between updates; bring it back to data
    // values so that the maxima of this tile meet their like. Only the very first tile of a
    // picture finds it fresh.
    if (transmitted && !(t.indexX == 0 && t.indexY == 0 && iteration == 0))
        InvertForDisplay(preview);

    // Where a row of tiles has three or more members, each gives up half of the overlap on
    // both sides, so that neighbours meet in the middle of their common band; with fewer the
    // later tile simply overwrites the overlap.
    cImageBox source = Box(t.lowX, t.lowX + t.sizeX - 1, t.lowY, t.lowY + t.sizeY - 1, t.lowZ,
                           t.lowZ + t.depth - 1);
    if (!(t.countX < 3 && t.countY < 3)) {
        source.x0 = t.lowX + t.overlapX / 2;
        source.x1 = t.lowX + t.sizeX - t.overlapX / 2 - 1;
        source.y0 = t.lowY + t.overlapY / 2;
        source.y1 = t.lowY + t.sizeY - t.overlapY / 2 - 1;
    }
    // The last tile of such a row is cut, or stretched, so that it ends at the panel's edge.
    if (t.countX >= 3 && t.indexX == t.countX - 1) {
        const int64_t excess = int64_t{t.sizeX - t.overlapX} * (t.indexX + 1) - width + 1 + t.depth;
        source.x1 = static_cast<uint32_t>(source.x1 - excess);
    }
    if (t.countY >= 3 && t.indexY == t.countY - 1) {
        const int64_t excess =
            int64_t{t.sizeY - t.overlapY} * (t.indexY + 1) - height + 1 + t.depth;
        source.y1 = static_cast<uint32_t>(source.y1 - excess);
    }

    const uint32_t xo = (t.sizeX - t.overlapX) * t.indexX;
    const uint32_t yo = (t.sizeY - t.overlapY) * t.indexY;
    const uint32_t xe = xo + (source.x1 - source.x0);
    const uint32_t ye = yo + (source.y1 - source.y0);
    math->TripleMaximumProjectionRoi(image, preview, source, Box(xo, xe, yo, ye),
                                     Box(xo, xe, height - t.depth, height - 1),
                                     Box(width - t.depth, width - 1, yo, ye));

    if (transmitted)
        InvertForDisplay(preview);
}

void InvertForDisplay(const cFloatImagePtr& preview) {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    const float largest = math->FindMaximumValue(preview);
    const float smallest = math->FindMinimumValue(preview);
    math->MultiplyImageByConstant(preview, -1.0f, preview);
    const float shift = -(largest + smallest);
    const float guard = 1e-20f;
    math->SubtractImageByConstantAndThreshold(preview, shift, guard, guard, 1);
}

std::string UpdateFileName(const std::string& base, int32_t iteration, bool written) {
    return base + "_I" + std::to_string(written ? iteration + 1 : iteration);
}

void WriteUpdateFile(const cFloatImagePtr& preview, const std::string& base, int32_t iteration,
                     bool& written) {
    (void)WritePreviewFile(preview, UpdateFileName(base, iteration, written));
    written = true;
}

void DrawPsfMiddle(const cFloatImagePtr& preview, const cFloatImagePtr& psf) {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    const uint32_t width = preview->GetSizeX(), height = preview->GetSizeY();
    const uint32_t hx = width / 2, hy = height / 2;
    const uint32_t sizeX = psf->GetSizeX(), sizeY = psf->GetSizeY();
    // The quadrants of the far side are one pixel wider than the near ones and overwrite
    // the near ones' last column or row.
    math->CopyRectangularRoi(psf, preview, Box(0, hx - 1, 0, hy - 1), Box(0, hx - 1, 0, hy - 1));
    math->CopyRectangularRoi(psf, preview, Box(sizeX - hx - 1, sizeX - 1, 0, hy - 1),
                             Box(hx - 1, width - 1, 0, hy - 1));
    math->CopyRectangularRoi(psf, preview, Box(0, hx - 1, sizeY - hy - 1, sizeY - 1),
                             Box(0, hx - 1, hy - 1, height - 1));
    math->CopyRectangularRoi(psf, preview,
                             Box(sizeX - hx - 1, sizeX - 1, sizeY - hy - 1, sizeY - 1),
                             Box(hx - 1, width - 1, hy - 1, height - 1));
    cFloatImagePtr work(new cOvdImage<float>(preview->GetDimensions(), "cPreview"));
    math->FFTShift(preview, work, preview);
}

} // namespace Ovidane::PreviewPanels
