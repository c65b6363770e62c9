#include "largevolume/cVolumeInitialImageSource.h"

#include <utility>

namespace Ovidane {

cVolumeInitialImageSource::cVolumeInitialImageSource(cCountedPtr<cDeconLog> log)
    : cInitialImageSource(std::move(log), "cVolumeInitialImageSource") {}

void cVolumeInitialImageSource::Generate() {}

} // namespace Ovidane
