#include "largevolume/cMaximumProjectionInitialImageSource.h"

#include <utility>

namespace Ovidane {

cMaximumProjectionInitialImageSource::cMaximumProjectionInitialImageSource(
    cCountedPtr<cDeconLog> log)
    : cInitialImageSource(std::move(log), "cMaximumProjectionInitialImageSource") {}

void cMaximumProjectionInitialImageSource::Generate() {
    Guard([&] { Project(0.0f, &cImageMath::MaximumImage); });
}

} // namespace Ovidane
