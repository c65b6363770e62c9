// The exported operations: validate, derive the driver's arguments, run.
#include <cstring>
#include <memory>
#include <new>

#include "interface/ovdCallReport.h"
#include "interface/ovdDerivation.h"
#include "interface/ovdDetectSphericalAberration.h"
#include "interface/ovdHostCallbackAdapter.h"
#include "interface/ovdRunInverseFilter.h"
#include "interface/ovdRunScope.h"
#include "interface/ovdValidation.h"
#include "interface/ovdinf01.h"
#include "io/cTempFileGenerator.h"

using namespace Ovidane;

namespace {

// The stack and its optics: what a run and an aberration search take alike, under the same
// names, from the argument list they validated.
template <class Arguments>
void CopyStackAndOptics(const ovdArgumentList& list, uint16_t pixelType, Arguments& a) {
    a.inputFile = list.inputFile;
    a.tempDirectory = list.tempDirectory;
    a.width = list.width;
    a.height = list.height;
    a.depth = list.depth;
    a.xSpacing = list.xSpacing;
    a.ySpacing = list.ySpacing;
    a.zSpacing = list.zSpacing;
    a.numericalAperture = list.numericalAperture;
    a.refractiveIndex = list.refractiveIndex;
    a.emissionWavelength = list.emissionWavelength;
    a.xyGuardBand = list.xyGuardBand;
    a.zGuardBand = list.zGuardBand;
    a.overlap = list.overlap;
    a.xyMontage = list.xyMontage;
    a.pixelType = pixelType;
}

} // namespace

extern "C" {

OVD_API uint16_t OVD_CALL ovdInitStructInvFilterOpsStd(ovdStructInvFilterOpsStd* ops) {
    if (ops)
        std::memset(ops, 0, sizeof *ops);
    return 0;
}

OVD_API uint16_t OVD_CALL ovdInitStructInvFilterOpsExp(ovdStructInvFilterOpsExp* ops) {
    if (!ops)
        return 0;
    std::memset(ops, 0, sizeof *ops);
    ops->fNoiseFactor = 2e-5f;
    ops->fMemoryPercent = 100.0f;
    ops->sXYGuardBand = 10;
    ops->sZGuardBand = 6;
    ops->sOverlap = 10;
    ops->sReserved = 4;
    ops->bXYMontage = 1;
    ops->bReserved = 0;
    return 0;
}

OVD_API uint16_t OVD_CALL ovd3dInverseFilter(const ovdStructInvFilterImage* image,
                                             const ovdStructInvFilterPsf* psfIn,
                                             ovdStructInvFilterPsf* psfOut,
                                             const ovdStructInvFilterOpsStd* stdOptions,
                                             const ovdStructInvFilterOpsExp* expOptions,
                                             ovdStatusCallback callback, void* userData) {
    return ovdReportedCall([&]() -> uint16_t {
        const ovdRunScope scope;
        if (const uint16_t code = ovdValidateRecords(image, psfIn, psfOut, stdOptions, expOptions))
            return code;
        ovdRunArguments a = ovdDeriveFromRecords(*image, psfIn, psfOut, *stdOptions, *expOptions);
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

OVD_API uint16_t OVD_CALL
DLL_OVD_3DIF(const char* inputFile, const char* outputFile, const char* tempDirectory, int16_t width,
             int16_t height, int16_t depth, float xSpacing, float ySpacing, float zSpacing,
             float numericalAperture, float refractiveIndex, float emissionWavelength,
             uint16_t phaseObject, uint16_t brightfield, uint32_t /*reserved14*/, int16_t xyGuardBand,
             int16_t zGuardBand, int16_t overlap, uint16_t xyMontage, uint16_t pixelType,
             float sphericalAberration, uint16_t noiseLevel, uint16_t reservedFlag,
             uint16_t /*reserved23*/, const char* psfFile, int16_t psfWidth, int16_t psfHeight,
             int16_t psfDepth, float psfXSpacing, float psfYSpacing, float psfZSpacing,
             const char* outputPsfFile, int16_t* outPsfWidth, int16_t* outPsfHeight,
             int16_t* outPsfDepth, float* outPsfXSpacing, float* outPsfYSpacing,
             float* outPsfZSpacing, ovdHostStatusCallback callback, void* userData) {
    return ovdReportedCall([&]() -> uint16_t {
        const ovdRunScope scope;
        const ovdArgumentList list{inputFile,   outputFile,   tempDirectory,  width,
                                   height,      depth,        xSpacing,       ySpacing,
                                   zSpacing,    numericalAperture, refractiveIndex,
                                   emissionWavelength, phaseObject, brightfield, xyGuardBand,
                                   zGuardBand,  overlap,      xyMontage,      noiseLevel,
                                   reservedFlag, psfFile,     psfWidth,       psfHeight,
                                   psfDepth,    psfXSpacing,  psfYSpacing,    psfZSpacing,
                                   outputPsfFile};
        if (const uint16_t code = ovdValidateArguments(list))
            return code;

        // The bridge to the host's callback exists for the whole run, also without a
        // callback: it then answers "continue" by itself.
        std::unique_ptr<ovdHostCallbackRecord> bridge(new (std::nothrow)
                                                          ovdHostCallbackRecord{callback, userData});
        if (!bridge)
            return OVD_RESULT_OUT_OF_MEMORY;

        ovdRunArguments a;
        CopyStackAndOptics(list, pixelType, a);
        a.outputFile = outputFile;
        a.phaseObject = phaseObject;
        a.modality = brightfield ? OVD_MODALITY_TL_BRIGHTFIELD : OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
        a.sphericalAberration = sphericalAberration;
        a.noiseLevel = noiseLevel;
        a.noiseFactor = 0.0f;
        a.memoryPercent = 100.0f;
        a.psfFile = psfFile ? psfFile : "";
        a.psfWidth = psfWidth;
        a.psfHeight = psfHeight;
        a.psfDepth = psfDepth;
        a.psfXSpacing = psfXSpacing;
        a.psfYSpacing = psfYSpacing;
        a.psfZSpacing = psfZSpacing;
        a.outputPsfFile = outputPsfFile ? outputPsfFile : "";
        ovdSavedPsfGeometry saved;
        saved.PointDriverAt(a);
        a.callback = &ovdHostCallbackAdapter;
        a.userData = bridge.get();

        const uint16_t result = ovdRunInverseFilter(a);
        if (result == OVD_RESULT_SUCCESS) {
            if (outPsfWidth) *outPsfWidth = saved.width;
            if (outPsfHeight) *outPsfHeight = saved.height;
            if (outPsfDepth) *outPsfDepth = saved.depth;
            if (outPsfXSpacing) *outPsfXSpacing = saved.xSpacing;
            if (outPsfYSpacing) *outPsfYSpacing = saved.ySpacing;
            if (outPsfZSpacing) *outPsfZSpacing = saved.zSpacing;
        }
        return result;
    });
}

OVD_API uint16_t OVD_CALL ovd3dInverseFilterDetectSA(
    const char* inputFile, const char* tempDirectory, int16_t width, int16_t height, int16_t depth,
    float xSpacing, float ySpacing, float zSpacing, float numericalAperture, float refractiveIndex,
    float emissionWavelength, uint16_t phaseObject, uint16_t brightfield, uint32_t reserved13,
    int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap, uint16_t xyMontage,
    uint16_t pixelType, float lowerLimit, float upperLimit, float* result, uint16_t noiseLevel,
    uint16_t reserved23, uint16_t reservedFlag, ovdHostStatusCallback callback, void* userData) {
    return ovd3dInverseFilterDetectSAWithPsfModel(
        inputFile, tempDirectory, width, height, depth, xSpacing, ySpacing, zSpacing,
        numericalAperture, refractiveIndex, emissionWavelength, phaseObject, brightfield,
        reserved13, xyGuardBand, zGuardBand, overlap, xyMontage, pixelType, lowerLimit, upperLimit,
        result, noiseLevel, reserved23, reservedFlag, nullptr, callback, userData);
}

OVD_API uint16_t OVD_CALL ovd3dInverseFilterDetectSAWithPsfModel(
    const char* inputFile, const char* tempDirectory, int16_t width, int16_t height, int16_t depth,
    float xSpacing, float ySpacing, float zSpacing, float numericalAperture, float refractiveIndex,
    float emissionWavelength, uint16_t phaseObject, uint16_t brightfield, uint32_t reserved13,
    int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap, uint16_t xyMontage,
    uint16_t pixelType, float lowerLimit, float upperLimit, float* result, uint16_t noiseLevel,
    uint16_t reserved23, uint16_t reservedFlag, const ovdStructPsfModel* psfModel,
    ovdHostStatusCallback callback, void* userData) {
    return ovd3dInverseFilterDetectSAWithSearch(
        inputFile, tempDirectory, width, height, depth, xSpacing, ySpacing, zSpacing,
        numericalAperture, refractiveIndex, emissionWavelength, phaseObject, brightfield,
        reserved13, xyGuardBand, zGuardBand, overlap, xyMontage, pixelType, lowerLimit, upperLimit,
        result, noiseLevel, reserved23, reservedFlag, psfModel, nullptr, callback, userData);
}

OVD_API uint16_t OVD_CALL ovdInitStructSASearch(ovdStructSASearch* search) {
    if (!search)
        return OVD_RESULT_INVALID_ARGUMENT;
    *search = ovdStructSASearch{};
    search->nSearch = OVD_SA_SEARCH_FULL;
    return OVD_RESULT_SUCCESS;
}

OVD_API uint16_t OVD_CALL ovd3dInverseFilterDetectSAWithSearch(
    const char* inputFile, const char* tempDirectory, int16_t width, int16_t height, int16_t depth,
    float xSpacing, float ySpacing, float zSpacing, float numericalAperture, float refractiveIndex,
    float emissionWavelength, uint16_t phaseObject, uint16_t brightfield, uint32_t /*reserved13*/,
    int16_t xyGuardBand, int16_t zGuardBand, int16_t overlap, uint16_t xyMontage,
    uint16_t pixelType, float lowerLimit, float upperLimit, float* result, uint16_t noiseLevel,
    uint16_t /*reserved23*/, uint16_t reservedFlag, const ovdStructPsfModel* psfModel,
    const ovdStructSASearch* search, ovdHostStatusCallback callback, void* userData) {
    return ovdReportedCall([&]() -> uint16_t {
        const ovdRunScope scope;
        if (!tempDirectory)
            return OVD_RESULT_INVALID_ARGUMENT;
        ovdStructPsfModel model;
        ovdInitStructPsfModel(&model);
        if (psfModel)
            model = *psfModel;
        if (const uint16_t code = ovdCheckPsfModel(model))
            return code;
        ovdStructSASearch searchOptions;
        ovdInitStructSASearch(&searchOptions);
        if (search)
            searchOptions = *search;
        if (const uint16_t code = ovdCheckSASearch(searchOptions))
            return code;
        // The converted stack's future name doubles as the output probe of the validation,
        // which empties and deletes it again.
        cTempFileGenerator& generator = cTempFileGenerator::Instance();
        generator.SetDirectory(tempDirectory);
        const char* converted = generator.Generate();
        const ovdArgumentList list{inputFile, converted, tempDirectory, width, height, depth,
                                   xSpacing, ySpacing, zSpacing, numericalAperture,
                                   refractiveIndex, emissionWavelength, phaseObject, brightfield,
                                   xyGuardBand, zGuardBand, overlap, xyMontage, noiseLevel,
                                   0, nullptr, 0, 0, 0, 0, 0, 0, nullptr};
        if (const uint16_t code = ovdValidateArguments(list))
            return code;
        std::unique_ptr<ovdHostCallbackRecord> bridge(new (std::nothrow)
                                                          ovdHostCallbackRecord{callback, userData});
        if (!bridge)
            return OVD_RESULT_OUT_OF_MEMORY;
        if (upperLimit < lowerLimit || reservedFlag > 1 || !result)
            return OVD_RESULT_INVALID_ARGUMENT;
        // An unknown pixel type leaves nothing to read; it is refused like an unconvertible
        // input instead of running a search over no data.
        if (pixelType > OVD_ARG_PIXEL_UINT8)
            return OVD_RESULT_CONVERSION_FAILED;
        const uint32_t binFactor =
            ovdSearchBinFactor(searchOptions, width, height, xSpacing, ySpacing,
                               numericalAperture, emissionWavelength);
        if (binFactor == 0)
            return OVD_RESULT_INVALID_ARGUMENT;

        ovdDetectArguments a;
        CopyStackAndOptics(list, pixelType, a);
        a.convertedFile = converted ? converted : "";
        a.lowerLimit = lowerLimit;
        a.upperLimit = upperLimit;
        a.psfModel = model;
        a.binFactor = binFactor;
        a.callback = &ovdHostCallbackAdapter;
        a.userData = bridge.get();
        return ovdDetectSphericalAberration(a, result);
    });
}

} // extern "C"
