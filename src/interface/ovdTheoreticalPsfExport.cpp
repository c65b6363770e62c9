// The host extension that writes the theoretical PSF of a microscope as a raw float stack,
// its centre in the middle of the stack: what a host shows, saves or convolves with.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/DeconKeys.h"
#include "core/ExceptionGuard.h"
#include "core/cFailureReason.h"
#include "decon/cTheoreticalPsfFirstGuessWithSphericalAberration.h"
#include "interface/ovdCallReport.h"
#include "interface/ovdValidation.h"
#include "interface/ovdinf01.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "math/ExactScalarPsf.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;

namespace {

// The arguments in the order and with the codes of the argument-list operations, so that a
// host sees the same answer for the same optics whichever call it makes.
uint16_t CheckPsfArguments(const char* file, int16_t width, int16_t height, int16_t depth,
                           float xSpacing, float ySpacing, float zSpacing, float numericalAperture,
                           float refractiveIndex, float emissionWavelength, uint16_t brightfield,
                           float sphericalAberration) {
    if (!file || !*file)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(width > 0 && height > 0 && depth > 0))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(xSpacing > 0 && ySpacing > 0 && zSpacing > 0) || !std::isfinite(xSpacing) ||
        !std::isfinite(ySpacing) || !std::isfinite(zSpacing))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (!(numericalAperture > 0 && refractiveIndex > 0 && emissionWavelength > 0))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (brightfield > 1 || !std::isfinite(sphericalAberration))
        return OVD_RESULT_INVALID_ARGUMENT;
    if (numericalAperture > refractiveIndex)
        return OVD_RESULT_INVALID_ARGUMENT;
    if (emissionWavelength > 10.0f || emissionWavelength < 0.1f)
        return OVD_RESULT_WAVELENGTH_OUT_OF_RANGE;
    // Media outside 1 to 5 are refused as the record form refuses them: the pupil model
    // knows no such immersion.
    if (!(refractiveIndex >= 1.0f && refractiveIndex <= 5.0f) ||
        !ovdIsApertureRatioAcceptable(numericalAperture, refractiveIndex))
        return OVD_RESULT_OPTICS_OUT_OF_RANGE;
    return ovdCheckResolution(xSpacing, ySpacing, zSpacing, numericalAperture, refractiveIndex,
                              emissionWavelength);
}

// Moves pixel (0,0,0) of a wrap-around PSF to pixel (W/2, H/2, D/2). An axis of even size
// swaps its halves, which is the image math's FFTShift; an odd axis needs the opposite
// rotation of that shift, so for any odd axis the stack is rotated in up to eight box
// copies, one per combination of the two parts of each axis.
void CentreOrigin(const cFloatImagePtr& psf, const cFloatImagePtr& out) {
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    const cImageDimensions size = psf->GetDimensions();
    if (size.x % 2 == 0 && size.y % 2 == 0 && size.z % 2 == 0) {
        cFloatImagePtr work(new cOvdImage<float>(size, Contiguous3D, "ovdWriteTheoreticalPsf"));
        math->FFTShift(psf, work, out);
        return;
    }
    // Along an axis of size n with centre c = n/2: source 0..n-c-1 goes to c..n-1 and
    // source n-c..n-1 to 0..c-1. The second part is empty when c is 0 (n = 1).
    struct Part {
        uint32_t from0, from1, to0, to1;
    };
    auto parts = [](uint32_t n, Part(&p)[2]) {
        const uint32_t c = n / 2;
        p[0] = {0, n - c - 1, c, n - 1};
        p[1] = {n - c, n - 1, 0, c - 1};
        return c > 0 ? 2 : 1;
    };
    Part px[2], py[2], pz[2];
    const int nx = parts(size.x, px), ny = parts(size.y, py), nz = parts(size.z, pz);
    for (int k = 0; k < nz; ++k)
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i)
                math->CopyRectangularRoi(
                    psf, out,
                    cImageBox{px[i].from0, py[j].from0, pz[k].from0, px[i].from1, py[j].from1,
                              pz[k].from1},
                    cImageBox{px[i].to0, py[j].to0, pz[k].to0, px[i].to1, py[j].to1, pz[k].to1});
}

cExactPsfOptics ExactOptics(float numericalAperture, float refractiveIndex,
                            float emissionWavelength, float sphericalAberration,
                            const ovdStructPsfModel& model) {
    cExactPsfOptics optics;
    optics.numericalAperture = numericalAperture;
    optics.immersionIndex = refractiveIndex;
    optics.sampleIndex = model.fSampleIndex > 0.0f ? model.fSampleIndex : refractiveIndex;
    optics.wavelength = emissionWavelength;
    optics.depth = model.fDepth;
    optics.sphericalAberration = sphericalAberration;
    return optics;
}

// Computes, centres and writes the PSF; false when the file can't be created. `created`
// turns true once this call has made a file that wasn't there, so that a failure after that
// can take it away again; a file that was there is only emptied.
bool WritePsf(const std::string& file, const cImageDimensions& size, float xSpacing, float ySpacing,
              float zSpacing, float numericalAperture, float refractiveIndex,
              float emissionWavelength, bool brightfield, float sphericalAberration,
              const ovdStructPsfModel& model, bool& created) {
    return GuardedCall("ovdWriteTheoreticalPsf", [&] {
        cFloatImagePtr psf(new cOvdImage<float>(size, Contiguous3D, "ovdWriteTheoreticalPsf"));
        if (model.nModel == OVD_PSF_MODEL_EXACT) {
            const float spacing[3] = {xSpacing, ySpacing, zSpacing};
            GenerateExactScalarPsf(psf, spacing,
                                   ExactOptics(numericalAperture, refractiveIndex,
                                               emissionWavelength, sphericalAberration, model));
        } else {
            // The axial scale stays 1: the PSF is the one of the stated z spacing.
            cTheoreticalPsfFirstGuessWithSphericalAberration guess(
                xSpacing, ySpacing, zSpacing, size, numericalAperture, refractiveIndex,
                emissionWavelength, sphericalAberration, 1.0f,
                brightfield ? DEC_FLAG_MOD_TL_BRIGHTFIELD : DEC_FLAG_MOD_WF_FLUORESCENCE);
            cFloatImagePtr none;
            guess.Apply(psf, none);
        }

        // The model already aims at a sum of 1; the sum is taken again so that the file
        // holds exactly a unit volume whatever rounding the planes carried.
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        const double sum = math->SumImage(psf);
        if (!(sum > 0.0) || !std::isfinite(sum))
            throw cException("ovdWriteTheoreticalPsf", "PSF without intensity", OVD_ERR_PARAMETER);
        math->MultiplyImageByConstant(psf, static_cast<float>(1.0 / sum), psf);

        cFloatImagePtr centred(new cOvdImage<float>(size, Contiguous3D, "ovdWriteTheoreticalPsf"));
        CentreOrigin(psf, centred);

        // A PSF file is exactly as long as its stack. An existing file is replaced through the
        // name given, never deleted and made anew, so a link or a device stays what it was.
        std::error_code ignored;
        const bool existed =
            std::filesystem::exists(std::filesystem::symlink_status(file, ignored));
        cUnmanagedRawFileWriter writer(file);
        if (!writer.OpenToReplace())
            return false;
        created = !existed;
        writer.Write(centred);
        const bool closed = writer.CloseDurably();
        if (!closed || !writer.GetLastError().empty())
            throw cException("ovdWriteTheoreticalPsf", file + ": short write", OVD_ERR_FOREIGN);
        return true;
    });
}

} // namespace

extern "C" {

OVD_API uint16_t OVD_CALL ovdInitStructPsfModel(ovdStructPsfModel* model) {
    if (!model)
        return OVD_RESULT_INVALID_ARGUMENT;
    *model = ovdStructPsfModel{};
    model->nModel = OVD_PSF_MODEL_SPECIFIED;
    return OVD_RESULT_SUCCESS;
}

OVD_API uint16_t OVD_CALL ovdWriteTheoreticalPsf(const char* file, int16_t width, int16_t height,
                                                 int16_t depth, float xSpacing, float ySpacing,
                                                 float zSpacing, float numericalAperture,
                                                 float refractiveIndex, float emissionWavelength,
                                                 uint16_t brightfield, float sphericalAberration) {
    return ovdWriteTheoreticalPsfModel(file, width, height, depth, xSpacing, ySpacing, zSpacing,
                                       numericalAperture, refractiveIndex, emissionWavelength,
                                       brightfield, sphericalAberration, nullptr);
}

OVD_API uint16_t OVD_CALL ovdWriteTheoreticalPsfModel(
    const char* file, int16_t width, int16_t height, int16_t depth, float xSpacing, float ySpacing,
    float zSpacing, float numericalAperture, float refractiveIndex, float emissionWavelength,
    uint16_t brightfield, float sphericalAberration, const ovdStructPsfModel* modelRecord) {
    return ovdReportedCall([&]() -> uint16_t {
        ovdStructPsfModel model;
        ovdInitStructPsfModel(&model);
        if (modelRecord)
            model = *modelRecord;
        if (const uint16_t code = ovdCheckPsfModel(model))
            return code;
        if (const uint16_t code = CheckPsfArguments(
                file, width, height, depth, xSpacing, ySpacing, zSpacing, numericalAperture,
                refractiveIndex, emissionWavelength, brightfield, sphericalAberration))
            return code;
        bool opened = false, created = false;
        try {
            opened =
                WritePsf(file, cImageDimensions{uint32_t(width), uint32_t(height), uint32_t(depth)},
                         xSpacing, ySpacing, zSpacing, numericalAperture, refractiveIndex,
                         emissionWavelength, brightfield != 0, sphericalAberration, model, created);
        } catch (const std::exception& failure) {
            cFailureReason::Record(cFailureReason::Describe(failure));
            if (created)
                std::remove(file); // a partial PSF is no PSF, and this call made the file
            return OVD_RESULT_RUN_FAILED;
        }
        if (!opened)
            cFailureReason::Record(std::string(file) + ": cannot be created");
        return opened ? OVD_RESULT_SUCCESS : OVD_RESULT_CANNOT_CREATE_FILE;
    });
}

} // extern "C"
