#include "decon/cPsfCache.h"

#include <algorithm>
#include <bit>
#include <mutex>
#include <new>

#include "decon/KeptPixels.h"

namespace Ovidane {

namespace {

struct cKept {
    std::mutex lock;
    uint64_t allowance = 0;
    bool filled = false;
    cPsfCache::cKey key;
    cKeptBuffer pixels;
    // The key of the last PSF offered and not kept.
    bool offered = false;
    cPsfCache::cKey offeredKey;
};

// Never destroyed: a host's run may end after the process began to shut down.
cKept& Kept() {
    static cKept* kept = new cKept;
    return *kept;
}

bool Same(float a, float b) {
    return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b);
}

uint64_t BytesOf(const cImageDimensions& size) {
    return size.Voxels() * sizeof(float);
}

} // namespace

bool cPsfCache::cKey::operator==(const cKey& o) const {
    return size == o.size && Same(spacingX, o.spacingX) && Same(spacingY, o.spacingY) &&
           Same(spacingZ, o.spacingZ) && Same(axialScale, o.axialScale) &&
           Same(numericalAperture, o.numericalAperture) &&
           Same(refractiveIndex, o.refractiveIndex) && Same(wavelength, o.wavelength) &&
           Same(sphericalAberration, o.sphericalAberration) && modality == o.modality &&
           backEnd == o.backEnd;
}

bool cPsfCache::Fetch(const cKey& key, const cFloatImagePtr& psf) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    if (!kept.filled || !psf || !(kept.key == key) || !(psf->GetDimensions() == key.size))
        return false;
    KeptPixels::Restore(kept.pixels, psf);
    return true;
}

void cPsfCache::Store(const cKey& key, const cFloatImagePtr& psf) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    if (!psf || !(psf->GetDimensions() == key.size) || BytesOf(key.size) > kept.allowance)
        return;
    // A PSF is kept when it is made the second time in a row: a process that restores one
    // stack would never fetch it, and the copy would cost its one run a stack of memory
    // written for the first time.
    if (!(kept.offered && kept.offeredKey == key)) {
        kept.offered = true;
        kept.offeredKey = key;
        return;
    }
    kept.offered = false;
    kept.filled = false;
    try {
        KeptPixels::Store(psf, kept.pixels);
    } catch (const std::bad_alloc&) {
        // Keeping is a saving, never a need: the run goes on without it.
        kept.pixels.Clear();
        return;
    }
    kept.key = key;
    kept.filled = true;
}

void cPsfCache::KeepAtMost(uint64_t bytes) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    kept.allowance = bytes;
    if (kept.pixels.Size() * sizeof(float) > bytes) {
        kept.filled = false;
        kept.pixels.Clear();
    }
}

} // namespace Ovidane
