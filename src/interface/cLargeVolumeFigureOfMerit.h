#pragma once
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "interface/cAberrationFigureOfMerit.h"

namespace Ovidane {

class cLargeVolumeInverseFilterDeconAlgorithm;

// The aberration search's score of a candidate: the whole stack cut once, then restored
// with the inverse filter at the log's spherical aberration for every evaluation.
class cLargeVolumeFigureOfMerit : public cAberrationFigureOfMerit {
public:
    explicit cLargeVolumeFigureOfMerit(cCountedPtr<cDeconLog> log);
    ~cLargeVolumeFigureOfMerit() override;

    int32_t Prepare() override;
    int32_t Evaluate() override;
    double GetResult() const override;

private:
    cCountedPtr<cLargeVolumeInverseFilterDeconAlgorithm> mAlgorithm;
};

} // namespace Ovidane
