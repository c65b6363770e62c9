#include "decon/cPsfCache.h"

#include <algorithm>
#include <bit>
#include <memory>
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
    // Shared with the images lent over it, which keep it while they live: it is written only
    // while nothing else holds it.
    std::shared_ptr<cKeptBuffer> pixels = std::make_shared<cKeptBuffer>();
    // The pixels are the PSF as prepared, lent under this frozen number.
    bool prepared = false;
    uint64_t frozenNumber = 0;
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

// The kept pixels, fresh ones while lent images still read the old.
cKeptBuffer& Writable(cKept& kept) {
    if (kept.pixels.use_count() > 1)
        kept.pixels = std::make_shared<cKeptBuffer>();
    return *kept.pixels;
}

// Copies `psf` into the kept pixels; false, holding nothing, when the memory is refused.
bool Keep(cKept& kept, const cFloatImagePtr& psf) {
    kept.filled = false;
    kept.prepared = false;
    cKeptBuffer& pixels = Writable(kept);
    try {
        KeptPixels::Store(psf, pixels);
    } catch (const std::bad_alloc&) {
        // Keeping is a saving, never a need: the run goes on without it.
        pixels.Clear();
        return false;
    }
    return true;
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
    if (!kept.filled || kept.prepared || !psf || !(kept.key == key) ||
        !(psf->GetDimensions() == key.size))
        return false;
    KeptPixels::Restore(*kept.pixels, psf);
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
    if (!Keep(kept, psf))
        return;
    kept.key = key;
    kept.filled = true;
}

cFloatImagePtr cPsfCache::LendPrepared(const cKey& key) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    if (!kept.filled || !kept.prepared || !(kept.key == key))
        return cFloatImagePtr();
    cFloatImagePtr lent(
        new cOvdImage<float>(kept.pixels, kept.pixels->Data(), key.size, "cPsfCache"));
    lent->FreezeAs(kept.frozenNumber);
    return lent;
}

void cPsfCache::KeepPrepared(const cKey& key, const cFloatImagePtr& prepared) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    if (!kept.filled || kept.prepared || !(kept.key == key) || !prepared ||
        !(prepared->GetDimensions() == key.size) || !Keep(kept, prepared))
        return;
    kept.filled = true;
    kept.prepared = true;
    kept.frozenNumber = cOvdImage<float>::NewFrozenNumber();
}

void cPsfCache::KeepAtMost(uint64_t bytes) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    kept.allowance = bytes;
    if (kept.pixels->Size() * sizeof(float) > bytes) {
        kept.filled = false;
        kept.prepared = false;
        Writable(kept).Clear();
    }
}

} // namespace Ovidane
