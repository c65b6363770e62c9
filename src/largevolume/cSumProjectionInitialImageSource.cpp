#include "largevolume/cSumProjectionInitialImageSource.h"

#include <utility>

namespace Ovidane {

cSumProjectionInitialImageSource::cSumProjectionInitialImageSource(cCountedPtr<cDeconLog> log)
    : cInitialImageSource(std::move(log), "cSumProjectionInitialImageSource") {}

void cSumProjectionInitialImageSource::Generate() {
    Guard([&] { Project(0.0f, &cImageMath::AddImage); });
}

} // namespace Ovidane
