#include "interface/ovdDerivation.h"

#include "interface/ovdValidation.h"

namespace Ovidane {

uint16_t ovdNoiseLevelOfFactor(float noiseFactor) {
    if (noiseFactor < 1.1920929e-7f)
        return OVD_NOISE_AUTOMATIC;
    if (noiseFactor == 2e-5f)
        return OVD_NOISE_LOW;
    if (noiseFactor == 2e-4f)
        return OVD_NOISE_MEDIUM;
    if (noiseFactor == 2e-3f)
        return OVD_NOISE_HIGH;
    return 4;
}

ovdRunArguments ovdDeriveFromRecords(const ovdStructInvFilterImage& image,
                                     const ovdStructInvFilterPsf* psfIn,
                                     const ovdStructInvFilterPsf* psfOut,
                                     const ovdStructInvFilterOpsStd& stdOptions,
                                     const ovdStructInvFilterOpsExp& expOptions) {
    ovdRunArguments a;
    a.inputFile = ovdResolveImageFileName(&image);
    a.outputFile = stdOptions.pszOutputFile ? stdOptions.pszOutputFile : "";
    a.tempDirectory = stdOptions.pszTempDirectory ? stdOptions.pszTempDirectory : "";
    a.width = image.sWidth;
    a.height = image.sHeight;
    a.depth = image.sDepth;
    a.xSpacing = image.fXSpacing;
    a.ySpacing = image.fYSpacing;
    a.zSpacing = image.fZSpacing;
    a.numericalAperture = image.fNumericalAperture;
    a.refractiveIndex = image.fRefractiveIndex;
    a.emissionWavelength = image.fEmissionWavelength;
    a.phaseObject = stdOptions.bPhaseObject ? 1 : 0;
    a.modality = int32_t(image.nModality);
    a.xyGuardBand = expOptions.sXYGuardBand;
    a.zGuardBand = expOptions.sZGuardBand;
    a.overlap = expOptions.sOverlap;
    a.xyMontage = expOptions.bXYMontage ? 1 : 0;
    switch (image.nDataType) {
    case OVD_DATATYPE_UINT8: a.pixelType = OVD_ARG_PIXEL_UINT8; break;
    case OVD_DATATYPE_UINT16: a.pixelType = OVD_ARG_PIXEL_UINT16; break;
    default: a.pixelType = OVD_ARG_PIXEL_FLOAT32; break;
    }
    a.sphericalAberration = image.fSphericalAberration;
    a.noiseLevel = ovdNoiseLevelOfFactor(expOptions.fNoiseFactor);
    a.noiseFactor = expOptions.fNoiseFactor;
    a.memoryPercent = expOptions.fMemoryPercent;
    if (psfIn) {
        a.psfFile = ovdResolvePsfFileName(psfIn);
        a.psfWidth = psfIn->sWidth;
        a.psfHeight = psfIn->sHeight;
        a.psfDepth = psfIn->sDepth;
        a.psfXSpacing = psfIn->fXSpacing;
        a.psfYSpacing = psfIn->fYSpacing;
        a.psfZSpacing = psfIn->fZSpacing;
    }
    a.outputPsfFile = ovdResolvePsfFileName(psfOut);
    return a;
}

void ovdSavedPsfGeometry::PointDriverAt(ovdRunArguments& a) {
    a.savedPsfWidth = &width;
    a.savedPsfHeight = &height;
    a.savedPsfDepth = &depth;
    a.savedPsfXSpacing = &xSpacing;
    a.savedPsfYSpacing = &ySpacing;
    a.savedPsfZSpacing = &zSpacing;
}

void ovdSavedPsfGeometry::CopyInto(ovdStructInvFilterPsf& record) const {
    record.sWidth = width;
    record.sHeight = height;
    record.sDepth = depth;
    record.fXSpacing = xSpacing;
    record.fYSpacing = ySpacing;
    record.fZSpacing = zSpacing;
}

} // namespace Ovidane
