#pragma once
#include <cstdint>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cOvdObject.h"
#include "core/cStatusUpdateHandler.h"
#include "interface/cAberrationFigureOfMerit.h"
#include "interface/cScalarObjective.h"

namespace Ovidane {

// Estimates the spherical aberration of a stack: the value of the log's spherical
// aberration at which a restoration scores best. A coarse scan from -10 to 10 in steps of
// 2 finds the region of the minimum, Brent's method refines it. One detector serves one
// search. The object name stays empty.
class cSADetectorWithBrent : public cOvdObject, public cScalarObjective {
public:
    explicit cSADetectorWithBrent(cCountedPtr<cDeconLog> log);

    // Replaces an earlier handler; each evaluation then reports once.
    void SetStatusCallback(ovdStatusCallback callback, void* userData);

    // The whole search. 0 with the estimate in GetResult() (0 also when the minimiser lies
    // outside [lower, upper]); otherwise the code that ended it: a failed preparation or
    // evaluation, 200 for a cancel, 1 for an exhausted iteration limit. GetResult() is then 0.
    uint16_t Detect(float lower, float upper);

    // The score at spherical aberration x; `error` is 0, or 200 for a cancel from the host,
    // or the figure of merit's own code. Counts every call.
    double EvaluateFigureOfMerit(double x, int32_t& error) override;

    // The bin factor of the accelerated search (DEC_BPARAMS_ACCELERATION_SA_DETECTION) for
    // these optics, spacings and stack width: the smaller lateral spacing over the optics'
    // sampling distance, truncated, and 1 for optics out of range, a width below 128 or a
    // quotient below 1. All in single precision.
    static int32_t AccelerationBinFactor(float numericalAperture, float wavelength,
                                         float xSpacing, float ySpacing, int32_t width);

    double GetResult() const { return result; }
    int32_t GetEvaluationCount() const { return evaluationCount; }
    double GetLowerLimit() const { return lowerLimit; }
    double GetUpperLimit() const { return upperLimit; }

protected:
    // The restoration that scores a candidate, made on the shared log: the large-volume
    // inverse filter. Tests put a function of their own in its place.
    virtual cCountedPtr<cAberrationFigureOfMerit> MakeFigureOfMerit(cCountedPtr<cDeconLog> log);

private:
    uint16_t Search(float lower, float upper);
    void SetAccelerationBinFactor();

    double result = 0.0;
    cCountedPtr<cDeconLog> log;
    cCountedPtr<cStatusUpdateHandler> statusHandler;
    cCountedPtr<cAberrationFigureOfMerit> algorithm;
    double tolerance = 0.025;
    double firstOffset = 0.0;
    double secondOffset = 1.0;
    double lowerLimit = -15.0;
    double upperLimit = 15.0;
    int32_t evaluationCount = 0;
};

} // namespace Ovidane
