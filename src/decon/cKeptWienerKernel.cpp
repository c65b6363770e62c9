#include "decon/cKeptWienerKernel.h"

#include <mutex>
#include <new>

#include "decon/KeptPixels.h"
#include "math/cFFTManager.h"

namespace Ovidane {

namespace {

struct cKept {
    std::mutex lock;
    uint64_t allowance = 0;
    bool filled = false;
    cImageDimensions packed;
    cKeptBuffer psf;
    cKeptBuffer kernel;

    void Drop() {
        filled = false;
        psf.Clear();
        kernel.Clear();
    }
    cFloatImagePtr Kernel() {
        return new cFloatImage(kernel.Data(), packed, Contiguous3D, "cKeptWienerKernel");
    }
};

// Never destroyed: a host's run may end after the process began to shut down.
cKept& Kept() {
    static cKept* kept = new cKept;
    return *kept;
}

} // namespace

cFloatImagePtr cKeptWienerKernel::For(const cFloatImagePtr& psf) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    cFFTManager& transforms = cFFTManager::Instance();
    cImageDimensions packed;
    transforms.GetPackedDimensions(psf->GetDimensions(), packed);
    if (kept.filled && kept.packed == packed && KeptPixels::Equal(psf, kept.psf))
        return kept.Kernel();
    const uint64_t bytes = (psf->GetDimensions().Voxels() + packed.Voxels()) * sizeof(float);
    kept.Drop();
    if (bytes > kept.allowance)
        return cFloatImagePtr();
    try {
        KeptPixels::Store(psf, kept.psf);
        kept.kernel.Resize(packed.Voxels());
    } catch (const std::bad_alloc&) {
        // Keeping is a saving, never a need: the filter goes on without it.
        kept.Drop();
        return cFloatImagePtr();
    }
    kept.packed = packed;
    const cFloatImagePtr kernel = kept.Kernel();
    transforms.KeepKernel(psf, kernel);
    kept.filled = true;
    return kernel;
}

void cKeptWienerKernel::KeepAtMost(uint64_t bytes) {
    cKept& kept = Kept();
    std::lock_guard<std::mutex> hold(kept.lock);
    kept.allowance = bytes;
    if ((kept.psf.Size() + kept.kernel.Size()) * sizeof(float) > bytes)
        kept.Drop();
}

} // namespace Ovidane
