#include "interface/cSADetectorWithBrent.h"

#include <exception>

#include "core/DeconKeys.h"
#include "core/cException.h"
#include "interface/cBrentMinimizer.h"
#include "interface/cLargeVolumeFigureOfMerit.h"
#include "interface/cMinimumBracketing.h"

namespace Ovidane {
namespace {

// The coarse scan covers the aberrations that occur in practice, whatever the caller's
// limits are: a minimum just outside the limits must still be found to be reported as 0.
constexpr int kScanPoints = 11;
constexpr float kScanStart = -10.0f;
constexpr float kScanStep = 2.0f;

// Progress assumes a search of about this many evaluations; later ones report 100 percent.
constexpr int16_t kExpectedEvaluations = 20;

} // namespace

cSADetectorWithBrent::cSADetectorWithBrent(cCountedPtr<cDeconLog> log) : log(log) {}

void cSADetectorWithBrent::SetStatusCallback(ovdStatusCallback callback, void* userData) {
    statusHandler = new cStatusUpdateHandler(callback, userData);
}

cCountedPtr<cAberrationFigureOfMerit>
cSADetectorWithBrent::MakeFigureOfMerit(cCountedPtr<cDeconLog> log) {
    return new cLargeVolumeFigureOfMerit(log);
}

uint16_t cSADetectorWithBrent::Detect(float lower, float upper) {
    return Guard([&] { return Search(lower, upper); });
}

int32_t cSADetectorWithBrent::AccelerationBinFactor(float na, float lambda, float xs, float ys,
                                                    int32_t width) {
    // The detector's rule: d is half the lateral cut-off period lambda / (2 NA), the
    // sampling distance that the optics resolve, and the factor is the spacing over it.
    const bool opticsInRange = na >= 0.1f && na <= 1.6f && lambda >= 0.1f && lambda <= 10.0f;
    if (!opticsInRange || width < 128)
        return 1;
    const float d = 1.0f / ((2.0f * na / lambda) * 2.0f);
    const float s = xs < ys ? xs : ys;
    const auto factor = static_cast<int32_t>(s / d);
    return factor < 1 ? 1 : factor;
}

void cSADetectorWithBrent::SetAccelerationBinFactor() {
    cDeconParameter& p = log->GetParameters();
    p.SetInt(DEC_IPARAMS_BINFACTOR,
             AccelerationBinFactor(p.GetReal(DEC_RPARAMS_NUMERICAL_APERTURE),
                                   p.GetReal(DEC_RPARAMS_EMISSION_WAVELENGTH),
                                   p.GetReal(DEC_RPARAMS_X_SPACING),
                                   p.GetReal(DEC_RPARAMS_Y_SPACING),
                                   p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)));
}

uint16_t cSADetectorWithBrent::Search(float lower, float upper) {
    if (!log)
        return OVD_ERR_PARAMETER;
    evaluationCount = 0;
    lowerLimit = lower;
    upperLimit = upper;
    cDeconParameter& p = log->GetParameters();
    if (p.GetBool(DEC_BPARAMS_ACCELERATION_SA_DETECTION))
        SetAccelerationBinFactor();
    // Every evaluation restores the same cut: the subvolume files must outlive each one.
    p.SetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE, false);

    algorithm = MakeFigureOfMerit(log);
    if (!algorithm)
        return OVD_ERR_FOREIGN;
    if (const int32_t code = algorithm->Prepare())
        return static_cast<uint16_t>(code);

    float scan[kScanPoints];
    for (int i = 0; i < kScanPoints; ++i) {
        int32_t error = 0;
        scan[i] = static_cast<float>(
            EvaluateFigureOfMerit(kScanStart + kScanStep * static_cast<float>(i), error));
        if (error)
            return static_cast<uint16_t>(error);
    }
    // Only a strictly smaller value replaces the best: of equal values the lower x wins.
    int m = 0;
    for (int i = 1; i < kScanPoints; ++i)
        if (scan[i] < scan[m])
            m = i;
    const double best = static_cast<double>(m) * kScanStep + kScanStart;

    double a = 0.0, b = 0.0, c = 0.0, fb = 0.0;
    if (m >= 1 && m <= kScanPoints - 2 && scan[m - 1] > scan[m] && scan[m + 1] > scan[m]) {
        // The scan's neighbours already enclose the minimum.
        a = best - kScanStep;
        b = best;
        c = best + kScanStep;
        fb = scan[m];
    } else {
        // At the scan's edge or on a plateau: walk downhill until enclosed, possibly
        // beyond the scanned range.
        cMinimumBracketing bracketing(this);
        bracketing.SetGrowthFactor(2.0);
        if (const int32_t code = bracketing.Bracket(best + firstOffset, best + secondOffset))
            return static_cast<uint16_t>(code);
        a = bracketing.a;
        b = bracketing.b;
        c = bracketing.c;
        fb = bracketing.fb;
    }

    cBrentMinimizer brent(this);
    if (tolerance > 0.0)
        brent.SetTolerance(tolerance);
    if (const int32_t code = brent.Minimize(a, b, c, fb))
        return static_cast<uint16_t>(code);

    // A minimiser outside the caller's limits is reported as 0, "no aberration found".
    result = brent.GetMinimumPosition();
    if (result > upperLimit)
        result = 0.0;
    if (result < lowerLimit)
        result = 0.0;
    return 0;
}

double cSADetectorWithBrent::EvaluateFigureOfMerit(double x, int32_t& error) {
    ++evaluationCount;
    if (!algorithm) {
        error = OVD_ERR_FOREIGN;
        return 0.0;
    }
    if (statusHandler) {
        const float percent =
            static_cast<float>(evaluationCount) / static_cast<float>(kExpectedEvaluations) * 100.0f;
        try {
            statusHandler->Update(percent, static_cast<int16_t>(evaluationCount),
                                  kExpectedEvaluations, 1, 1, 0);
        } catch (const std::exception&) {
            // The handler's only way to say "stop" is its exception.
            error = OVD_ERR_CANCEL;
            return 0.0;
        }
    }
    log->GetParameters().SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, static_cast<float>(x));
    error = algorithm->Evaluate();
    if (error != 0)
        return 0.0;
    return algorithm->GetResult();
}

} // namespace Ovidane
