#pragma once
#include <cstdint>
#include <typeindex>

#include "core/cImageDimensions.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// The last theoretical PSF made in the process, kept for the next request with the same
// optics and size: the warm runs of a host that restores stacks of one kind, and the
// subvolumes of a cut, all ask for the same PSF, which costs more to compute than to copy.
// A PSF is kept from the second time it is made on, and only when its bytes fit what the
// run's set-up allows (KeepAtMost), so the copy stays within the run's memory budget; the
// process holds at most one. A restoration that only reads its PSF may have the PSF it
// prepared kept in place of the one made (KeepPrepared), for the next such restorations to
// borrow without a copy (LendPrepared). Thread-safe.
class cPsfCache {
public:
    // Everything a theoretical PSF depends on. Numbers compare by their bits.
    struct cKey {
        cImageDimensions size;
        float spacingX = 0.0f, spacingY = 0.0f, spacingZ = 0.0f, axialScale = 0.0f;
        float numericalAperture = 0.0f, refractiveIndex = 0.0f, wavelength = 0.0f;
        float sphericalAberration = 0.0f;
        int modality = 0;
        // The image math back end the PSF was computed with.
        std::type_index backEnd = typeid(void);

        bool operator==(const cKey& other) const;
    };

    // Copies the kept PSF into `psf` (of the key's size) when one was kept for `key`.
    static bool Fetch(const cKey& key, const cFloatImagePtr& psf);
    // Keeps a copy of `psf` for `key` in place of the one kept, when it fits the allowance
    // and the PSF offered just before had the same key.
    static void Store(const cKey& key, const cFloatImagePtr& psf);
    // The prepared PSF kept for `key`, or null: an image over the kept pixels that keeps them
    // alive while it lives, frozen under one number for all images lent from one keeping.
    // Whoever borrows it only reads it.
    static cFloatImagePtr LendPrepared(const cKey& key);
    // Keeps a copy of `prepared` in place of the PSF kept for `key`, when one is kept.
    static void KeepPrepared(const cKey& key, const cFloatImagePtr& prepared);
    // From now on keeps PSFs of at most `bytes` (0: none), and lets go of a larger one.
    static void KeepAtMost(uint64_t bytes);
};

} // namespace Ovidane
