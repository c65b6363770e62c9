#include "interface/cLargeVolumeFigureOfMerit.h"

#include "largevolume/cLargeVolumeInverseFilterDeconAlgorithm.h"

namespace Ovidane {

cLargeVolumeFigureOfMerit::cLargeVolumeFigureOfMerit(cCountedPtr<cDeconLog> log)
    : mAlgorithm(new cLargeVolumeInverseFilterDeconAlgorithm(std::move(log))) {
    // The search reads its figure from the restored images in memory; the files would only
    // be written to be overwritten by the next evaluation.
    mAlgorithm->SetWritesResultFiles(false);
}

// Releasing the algorithm deletes the files of the cut.
cLargeVolumeFigureOfMerit::~cLargeVolumeFigureOfMerit() = default;

int32_t cLargeVolumeFigureOfMerit::Prepare() { return mAlgorithm->Prepare(); }

int32_t cLargeVolumeFigureOfMerit::Evaluate() { return mAlgorithm->Evaluate(); }

double cLargeVolumeFigureOfMerit::GetResult() const { return mAlgorithm->GetResult(); }

} // namespace Ovidane
