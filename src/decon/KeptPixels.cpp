#include "decon/KeptPixels.h"

#include <cstring>

#include "math/ImageWalk.h"

namespace Ovidane::KeptPixels {

namespace {

// Calls line(image line, the same line among the pixels, its length) for every line.
template <class Line> void ForEachImageLine(const cFloatImagePtr& image, Line&& line) {
    const cImageDimensions size = image->GetDimensions();
    ImageWalk::ForEachLine(size, [&](uint32_t y, uint32_t z) {
        line(image->GetLinePointer(y, z), (std::size_t{z} * size.y + y) * size.x, size.x);
    });
}

} // namespace

void Store(const cFloatImagePtr& image, cKeptBuffer& pixels) {
    pixels.Resize(image->GetDimensions().Voxels());
    float* kept = pixels.Data();
    ForEachImageLine(image, [&](const float* line, std::size_t at, std::size_t n) {
        std::memcpy(kept + at, line, n * sizeof(float));
    });
}

void Restore(const cKeptBuffer& pixels, const cFloatImagePtr& image) {
    const float* kept = pixels.Data();
    ForEachImageLine(image, [&](float* line, std::size_t at, std::size_t n) {
        std::memcpy(line, kept + at, n * sizeof(float));
    });
}

} // namespace Ovidane::KeptPixels
