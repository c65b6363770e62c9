/* The boundary records in a 32-bit build: every offset and size is the binary format that
 * hosts rely on. Compiled (as C and as C++) with -m32 by the test suite; any mismatch stops
 * the compilation and fails the test. */
#include <assert.h>
#include <stddef.h>

#include "interface/ovdinf01.h"

#define OVD_AT(record, field, offset)                                                              \
    static_assert(offsetof(record, field) == (offset), #record "." #field " at " #offset)
#define OVD_SIZE(record, bytes) static_assert(sizeof(record) == (bytes), #record " size")

static_assert(sizeof(void*) == 4, "this check is meant for a 32-bit build");

OVD_AT(ovdStructInvFilterImage, pszFile, 0);
OVD_AT(ovdStructInvFilterImage, pszFileAlternate, 4);
OVD_AT(ovdStructInvFilterImage, nReserved, 8);
OVD_AT(ovdStructInvFilterImage, nDataType, 20);
OVD_AT(ovdStructInvFilterImage, nModality, 24);
OVD_AT(ovdStructInvFilterImage, sWidth, 28);
OVD_AT(ovdStructInvFilterImage, sHeight, 30);
OVD_AT(ovdStructInvFilterImage, sDepth, 32);
OVD_AT(ovdStructInvFilterImage, sExtent4, 34);
OVD_AT(ovdStructInvFilterImage, fXSpacing, 36);
OVD_AT(ovdStructInvFilterImage, fYSpacing, 40);
OVD_AT(ovdStructInvFilterImage, fZSpacing, 44);
OVD_AT(ovdStructInvFilterImage, fNumericalAperture, 48);
OVD_AT(ovdStructInvFilterImage, fRefractiveIndex, 52);
OVD_AT(ovdStructInvFilterImage, fEmissionWavelength, 56);
OVD_AT(ovdStructInvFilterImage, fSphericalAberration, 60);
OVD_SIZE(ovdStructInvFilterImage, 64);

OVD_AT(ovdStructInvFilterPsf, pszFile, 0);
OVD_AT(ovdStructInvFilterPsf, pszFileAlternate, 4);
OVD_AT(ovdStructInvFilterPsf, nReserved, 8);
OVD_AT(ovdStructInvFilterPsf, sWidth, 12);
OVD_AT(ovdStructInvFilterPsf, sHeight, 14);
OVD_AT(ovdStructInvFilterPsf, sDepth, 16);
OVD_AT(ovdStructInvFilterPsf, fXSpacing, 20);
OVD_AT(ovdStructInvFilterPsf, fYSpacing, 24);
OVD_AT(ovdStructInvFilterPsf, fZSpacing, 28);
OVD_AT(ovdStructInvFilterPsf, nDataType, 32);
OVD_SIZE(ovdStructInvFilterPsf, 36);

OVD_AT(ovdStructInvFilterOpsStd, pszOutputFile, 0);
OVD_AT(ovdStructInvFilterOpsStd, pszTempDirectory, 4);
OVD_AT(ovdStructInvFilterOpsStd, bPhaseObject, 8);
OVD_AT(ovdStructInvFilterOpsStd, nReserved, 12);
OVD_SIZE(ovdStructInvFilterOpsStd, 28);

OVD_AT(ovdStructInvFilterOpsExp, fNoiseFactor, 0);
OVD_AT(ovdStructInvFilterOpsExp, fMemoryPercent, 4);
OVD_AT(ovdStructInvFilterOpsExp, sXYGuardBand, 8);
OVD_AT(ovdStructInvFilterOpsExp, sZGuardBand, 10);
OVD_AT(ovdStructInvFilterOpsExp, sOverlap, 12);
OVD_AT(ovdStructInvFilterOpsExp, sReserved, 14);
OVD_AT(ovdStructInvFilterOpsExp, bXYMontage, 16);
OVD_AT(ovdStructInvFilterOpsExp, bReserved, 17);
OVD_AT(ovdStructInvFilterOpsExp, nReserved, 20);
OVD_SIZE(ovdStructInvFilterOpsExp, 36);

OVD_AT(ovdStructInvFilterStatus, fPercentDone, 0);
OVD_AT(ovdStructInvFilterStatus, fMinutesLeft, 4);
OVD_AT(ovdStructInvFilterStatus, sIteration, 8);
OVD_AT(ovdStructInvFilterStatus, sIterationCount, 10);
OVD_AT(ovdStructInvFilterStatus, sSubvolume, 12);
OVD_AT(ovdStructInvFilterStatus, sSubvolumeCount, 14);
OVD_AT(ovdStructInvFilterStatus, sStage, 16);
OVD_SIZE(ovdStructInvFilterStatus, 20);

OVD_AT(ovdStructIterativeOps, nMethod, 0);
OVD_AT(ovdStructIterativeOps, nIterations, 4);
OVD_AT(ovdStructIterativeOps, nAcceleration, 8);
OVD_AT(ovdStructIterativeOps, fRoughness, 12);
OVD_AT(ovdStructIterativeOps, nStart, 16);
OVD_AT(ovdStructIterativeOps, fGoldSmoothing, 20);
OVD_AT(ovdStructIterativeOps, nGoldInterval, 24);
OVD_AT(ovdStructIterativeOps, nObjectUpdates, 28);
OVD_AT(ovdStructIterativeOps, nPsfUpdates, 30);
OVD_SIZE(ovdStructIterativeOps, 32);

OVD_AT(ovdStructPsfModel, nModel, 0);
OVD_AT(ovdStructPsfModel, fSampleIndex, 4);
OVD_AT(ovdStructPsfModel, fDepth, 8);
OVD_AT(ovdStructPsfModel, nReserved, 12);
OVD_SIZE(ovdStructPsfModel, 16);

OVD_AT(ovdStructSASearch, nSearch, 0);
OVD_AT(ovdStructSASearch, nBinFactor, 4);
OVD_AT(ovdStructSASearch, nReserved, 8);
OVD_SIZE(ovdStructSASearch, 16);

/* Field widths that the offsets alone do not pin down. */
static_assert(sizeof(((ovdStructInvFilterImage*)0)->nReserved) == 12, "image reserved bytes");
static_assert(sizeof(((ovdStructInvFilterOpsStd*)0)->bPhaseObject) == 1, "8-bit flag");
static_assert(sizeof(((ovdStructInvFilterOpsStd*)0)->nReserved) == 16, "std reserved bytes");
static_assert(sizeof(((ovdStructInvFilterOpsExp*)0)->bXYMontage) == 1, "8-bit flag");
static_assert(sizeof(((ovdStructInvFilterOpsExp*)0)->nReserved) == 16, "exp reserved bytes");
static_assert(sizeof(ovdStatusCallback) == 4 && sizeof(ovdHostStatusCallback) == 4,
              "callbacks are plain code pointers");
