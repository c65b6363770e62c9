#pragma once
#include <utility>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cDeconOperation.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// Lets a host watch a long restoration: draws the current estimate (or PSF) into an image
// that belongs to the caller and lives across subvolumes.
class cPreview : public cDeconOperation {
public:
    explicit cPreview(cCountedPtr<cDeconLog> log) : mLog(std::move(log)) {}
    ~cPreview() override = default;

    virtual void Setup() = 0;
    // Draws `image`, the current estimate of a subvolume or its PSF, into `preview`.
    virtual void Update(cFloatImagePtr& preview, cFloatImagePtr& image) = 0;

protected:
    cCountedPtr<cDeconLog> mLog;
};

using cPreviewPtr = cCountedPtr<cPreview>;

} // namespace Ovidane
