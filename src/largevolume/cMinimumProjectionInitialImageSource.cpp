#include "largevolume/cMinimumProjectionInitialImageSource.h"

#include <limits>
#include <utility>

namespace Ovidane {

cMinimumProjectionInitialImageSource::cMinimumProjectionInitialImageSource(
    cCountedPtr<cDeconLog> log)
    : cInitialImageSource(std::move(log), "cMinimumProjectionInitialImageSource") {}

void cMinimumProjectionInitialImageSource::Generate() {
    Guard([&] { Project(std::numeric_limits<float>::max(), &cImageMath::MinimumImage); });
}

} // namespace Ovidane
