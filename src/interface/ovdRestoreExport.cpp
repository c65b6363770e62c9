// The iterative restoration for hosts: the records of the inverse filter plus a record of
// the method's options, checked more strictly than the five operations check theirs.
#include <cmath>
#include <cstring>
#include <string>

#include "core/cFailureReason.h"
#include "interface/ovdCallReport.h"
#include "interface/ovdDerivation.h"
#include "interface/ovdRunInverseFilter.h"
#include "interface/ovdRunScope.h"
#include "interface/ovdValidation.h"
#include "interface/ovdinf01.h"

using namespace Ovidane;

namespace {

constexpr uint16_t kRefused = OVD_RESULT_INVALID_ARGUMENT;

// A refusal with the reason the host reads back (ovdGetLastErrorMessage).
uint16_t Refuse(const std::string& reason) {
    cFailureReason::Record(reason);
    return kRefused;
}

bool AllFinite(std::initializer_list<float> values) {
    for (const float value : values)
        if (!std::isfinite(value))
            return false;
    return true;
}

// What the five operations would let through but no run can use: non-finite numbers (a
// NaN aberration gives a PSF of NaN and a stack of NaN), and cuts whose guard bands or
// overlap the geometry cannot honour.
uint16_t CheckRecordsStrictly(const ovdStructInvFilterImage& image,
                              const ovdStructInvFilterPsf* psfIn,
                              const ovdStructInvFilterOpsExp& exp) {
    if (!AllFinite({image.fXSpacing, image.fYSpacing, image.fZSpacing}))
        return Refuse("a spacing of the stack is not a finite number");
    if (!AllFinite({image.fNumericalAperture, image.fRefractiveIndex, image.fEmissionWavelength}))
        return Refuse("the aperture, refractive index or wavelength is not a finite number");
    if (!AllFinite({image.fSphericalAberration}))
        return Refuse("the spherical aberration is not a finite number");
    if (!AllFinite({exp.fNoiseFactor, exp.fMemoryPercent}))
        return Refuse("the noise factor or memory percentage is not a finite number");
    if (psfIn && !AllFinite({psfIn->fXSpacing, psfIn->fYSpacing, psfIn->fZSpacing}))
        return Refuse("a spacing of the measured PSF is not a finite number");
    if (exp.sXYGuardBand > 100 || exp.sZGuardBand > 100) {
        cFailureReason::Record("the guard bands are " + std::to_string(exp.sXYGuardBand) +
                               " (x and y) and " + std::to_string(exp.sZGuardBand) +
                               " (z); each may be at most 100");
        return OVD_RESULT_GUARD_BAND_TOO_LARGE;
    }
    if (exp.sOverlap > 300) {
        cFailureReason::Record("the overlap is " + std::to_string(exp.sOverlap) +
                               "; it may be at most 300");
        return OVD_RESULT_OVERLAP_TOO_LARGE;
    }
    return OVD_RESULT_SUCCESS;
}

// The cut keeps a guard band on both sides of every subvolume and can't place one that is
// as wide as the stack: it would then find no cut at all, which the five operations report
// as a disk too small. Checked after the records are known to be sound.
uint16_t CheckGuardBandFitsStack(const ovdStructInvFilterImage& image,
                                 const ovdStructInvFilterOpsExp& exp) {
    if (exp.sXYGuardBand < image.sWidth && exp.sXYGuardBand < image.sHeight)
        return OVD_RESULT_SUCCESS;
    cFailureReason::Record("the x and y guard band of " + std::to_string(exp.sXYGuardBand) +
                           " pixels must be smaller than the stack's width and height (" +
                           std::to_string(image.sWidth) + " x " + std::to_string(image.sHeight) +
                           ")");
    return OVD_RESULT_GUARD_BAND_TOO_LARGE;
}

uint16_t CheckIterativeOptions(const ovdStructIterativeOps& o) {
    if (o.nMethod > OVD_METHOD_BLIND_2D)
        return Refuse("unknown method " + std::to_string(o.nMethod));
    if (o.nAcceleration > OVD_ACCELERATION_EXTRAPOLATION)
        return Refuse("unknown acceleration " + std::to_string(o.nAcceleration));
    if (o.nStart > OVD_START_FLAT)
        return Refuse("unknown start " + std::to_string(o.nStart));
    if (o.nObjectUpdates > OVD_MAX_UPDATES || o.nPsfUpdates > OVD_MAX_UPDATES)
        return Refuse("the object and PSF updates a pass are " + std::to_string(o.nObjectUpdates) +
                      " and " + std::to_string(o.nPsfUpdates) + "; each may be at most " +
                      std::to_string(OVD_MAX_UPDATES));
    if (o.nIterations < 0 || o.nIterations > OVD_MAX_ITERATIONS)
        return Refuse("the number of passes is " + std::to_string(o.nIterations) +
                      "; it must lie in 1 to " + std::to_string(OVD_MAX_ITERATIONS) +
                      ", or be 0 for the method's default");
    if (!(o.fRoughness >= 0.0f && o.fRoughness <= 1000.0f))
        return Refuse("the roughness factor must be a number from 0 to 1000");
    if (!(o.fGoldSmoothing >= 0.0f && o.fGoldSmoothing <= 10.0f))
        return Refuse("the width of Gold's smoothing must be a number from 0 to 10");
    if (o.nGoldInterval < 1 || o.nGoldInterval > 1000)
        return Refuse("the interval of Gold's smoothing must lie in 1 to 1000");
    return OVD_RESULT_SUCCESS;
}

void CopyMethod(const ovdStructIterativeOps& o, ovdRunArguments& a) {
    a.method = o.nMethod;
    const bool blind = o.nMethod == OVD_METHOD_BLIND_2D;
    a.iterations = o.nMethod == OVD_METHOD_INVERSE_FILTER ? 1
                   : o.nIterations != 0              ? o.nIterations
                   : blind                           ? 20
                                                     : 30;
    a.acceleration = o.nAcceleration;
    a.roughness = o.fRoughness;
    a.start = o.nStart;
    a.goldSmoothing = o.fGoldSmoothing;
    a.goldInterval = o.nGoldInterval;
    a.objectUpdates = o.nObjectUpdates != 0 ? o.nObjectUpdates : blind ? 2 : 1;
    a.psfUpdates = o.nPsfUpdates != 0 ? o.nPsfUpdates : 1;
    // Started from the data, the blind passes explain the data by the data itself and the
    // PSF shrinks to a point within a few passes; from a flat start the PSF has to grow the
    // structure it blurs.
    if (blind)
        a.start = OVD_START_FLAT;
}

bool IsPlaneMethod(uint32_t method) {
    return method == OVD_METHOD_MLEM_2D || method == OVD_METHOD_BLIND_2D;
}

// A plane method restores one plane; a deeper stack is refused rather than restored plane
// by plane, which would pass off as 3D a restoration that ignores the light between planes.
uint16_t CheckPlaneMethodFitsStack(const ovdStructIterativeOps& o,
                                   const ovdStructInvFilterImage& image) {
    if (!IsPlaneMethod(o.nMethod) || image.sDepth == 1)
        return OVD_RESULT_SUCCESS;
    return Refuse("the plane methods restore a stack of one plane; this one has " +
                  std::to_string(image.sDepth));
}

} // namespace

extern "C" {

OVD_API uint16_t OVD_CALL ovdInitStructIterativeOps(ovdStructIterativeOps* ops) {
    if (!ops)
        return kRefused;
    std::memset(ops, 0, sizeof *ops);
    ops->nMethod = OVD_METHOD_MLEM;
    ops->nIterations = 0;
    ops->nAcceleration = OVD_ACCELERATION_EXTRAPOLATION;
    ops->fRoughness = 0.5f;
    ops->nStart = OVD_START_DATA;
    ops->fGoldSmoothing = 1.0f;
    ops->nGoldInterval = 5;
    return OVD_RESULT_SUCCESS;
}

OVD_API uint16_t OVD_CALL ovd3dRestore(const ovdStructInvFilterImage* image,
                                       const ovdStructInvFilterPsf* psfIn,
                                       ovdStructInvFilterPsf* psfOut,
                                       const ovdStructInvFilterOpsStd* stdOptions,
                                       const ovdStructInvFilterOpsExp* expOptions,
                                       const ovdStructIterativeOps* iterative,
                                       ovdStatusCallback callback, void* userData) {
    return ovd3dRestoreWithPsfModel(image, psfIn, psfOut, stdOptions, expOptions, iterative,
                                    nullptr, callback, userData);
}

OVD_API uint16_t OVD_CALL ovd3dRestoreWithPsfModel(
    const ovdStructInvFilterImage* image, const ovdStructInvFilterPsf* psfIn,
    ovdStructInvFilterPsf* psfOut, const ovdStructInvFilterOpsStd* stdOptions,
    const ovdStructInvFilterOpsExp* expOptions, const ovdStructIterativeOps* iterative,
    const ovdStructPsfModel* psfModel, ovdStatusCallback callback, void* userData) {
    return ovdReportedCall([&]() -> uint16_t {
        const ovdRunScope scope;
        ovdStructIterativeOps defaults;
        ovdInitStructIterativeOps(&defaults);
        const ovdStructIterativeOps& options = iterative ? *iterative : defaults;
        if (const uint16_t code = CheckIterativeOptions(options))
            return code;
        ovdStructPsfModel model;
        ovdInitStructPsfModel(&model);
        if (psfModel)
            model = *psfModel;
        if (const uint16_t code = ovdCheckPsfModel(model))
            return code;
        if (image && expOptions)
            if (const uint16_t code = CheckRecordsStrictly(*image, psfIn, *expOptions))
                return code;
        if (const uint16_t code = ovdValidateRecords(image, psfIn, psfOut, stdOptions, expOptions))
            return code;
        if (const uint16_t code = CheckGuardBandFitsStack(*image, *expOptions))
            return code;
        if (const uint16_t code = CheckPlaneMethodFitsStack(options, *image))
            return code;
        ovdRunArguments a = ovdDeriveFromRecords(*image, psfIn, psfOut, *stdOptions, *expOptions);
        CopyMethod(options, a);
        a.psfAsMeasured = true;
        a.psfModel = model.nModel;
        a.sampleIndex = model.fSampleIndex;
        a.focusDepth = model.fDepth;
        ovdSavedPsfGeometry saved;
        saved.PointDriverAt(a);
        a.callback = callback;
        a.userData = userData;

        const uint16_t result = ovdRunInverseFilter(a);
        if (result == OVD_RESULT_SUCCESS && psfOut && !a.outputPsfFile.empty())
            saved.CopyInto(*psfOut);
        return result;
    });
}

} // extern "C"
