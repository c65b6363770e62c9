#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "interface/ovdinf01.h"

// In the native 64-bit build the pointer fields widen to 8 bytes; every other field keeps
// its width and its distance from the field before it, and the records end on the
// alignment of their widest member. The same layout is tabled in docs/record-layout.md.
static_assert(sizeof(void*) == 8);

static_assert(offsetof(ovdStructInvFilterImage, pszFile) == 0);
static_assert(offsetof(ovdStructInvFilterImage, pszFileAlternate) == 8);
static_assert(offsetof(ovdStructInvFilterImage, nReserved) == 16);
static_assert(offsetof(ovdStructInvFilterImage, nDataType) == 28);
static_assert(offsetof(ovdStructInvFilterImage, nModality) == 32);
static_assert(offsetof(ovdStructInvFilterImage, sWidth) == 36);
static_assert(offsetof(ovdStructInvFilterImage, sHeight) == 38);
static_assert(offsetof(ovdStructInvFilterImage, sDepth) == 40);
static_assert(offsetof(ovdStructInvFilterImage, sExtent4) == 42);
static_assert(offsetof(ovdStructInvFilterImage, fXSpacing) == 44);
static_assert(offsetof(ovdStructInvFilterImage, fYSpacing) == 48);
static_assert(offsetof(ovdStructInvFilterImage, fZSpacing) == 52);
static_assert(offsetof(ovdStructInvFilterImage, fNumericalAperture) == 56);
static_assert(offsetof(ovdStructInvFilterImage, fRefractiveIndex) == 60);
static_assert(offsetof(ovdStructInvFilterImage, fEmissionWavelength) == 64);
static_assert(offsetof(ovdStructInvFilterImage, fSphericalAberration) == 68);
static_assert(sizeof(ovdStructInvFilterImage) == 72);

static_assert(offsetof(ovdStructInvFilterPsf, pszFile) == 0);
static_assert(offsetof(ovdStructInvFilterPsf, pszFileAlternate) == 8);
static_assert(offsetof(ovdStructInvFilterPsf, nReserved) == 16);
static_assert(offsetof(ovdStructInvFilterPsf, sWidth) == 20);
static_assert(offsetof(ovdStructInvFilterPsf, sHeight) == 22);
static_assert(offsetof(ovdStructInvFilterPsf, sDepth) == 24);
static_assert(offsetof(ovdStructInvFilterPsf, fXSpacing) == 28);
static_assert(offsetof(ovdStructInvFilterPsf, fYSpacing) == 32);
static_assert(offsetof(ovdStructInvFilterPsf, fZSpacing) == 36);
static_assert(offsetof(ovdStructInvFilterPsf, nDataType) == 40);
static_assert(sizeof(ovdStructInvFilterPsf) == 48); // 4 bytes of tail padding

static_assert(offsetof(ovdStructInvFilterOpsStd, pszOutputFile) == 0);
static_assert(offsetof(ovdStructInvFilterOpsStd, pszTempDirectory) == 8);
static_assert(offsetof(ovdStructInvFilterOpsStd, bPhaseObject) == 16);
static_assert(offsetof(ovdStructInvFilterOpsStd, nReserved) == 20);
static_assert(sizeof(ovdStructInvFilterOpsStd) == 40); // 4 bytes of tail padding

// No pointers: the same as in the 32-bit build.
static_assert(offsetof(ovdStructInvFilterOpsExp, fNoiseFactor) == 0);
static_assert(offsetof(ovdStructInvFilterOpsExp, fMemoryPercent) == 4);
static_assert(offsetof(ovdStructInvFilterOpsExp, sXYGuardBand) == 8);
static_assert(offsetof(ovdStructInvFilterOpsExp, sZGuardBand) == 10);
static_assert(offsetof(ovdStructInvFilterOpsExp, sOverlap) == 12);
static_assert(offsetof(ovdStructInvFilterOpsExp, sReserved) == 14);
static_assert(offsetof(ovdStructInvFilterOpsExp, bXYMontage) == 16);
static_assert(offsetof(ovdStructInvFilterOpsExp, bReserved) == 17);
static_assert(offsetof(ovdStructInvFilterOpsExp, nReserved) == 20);
static_assert(sizeof(ovdStructInvFilterOpsExp) == 36);

static_assert(offsetof(ovdStructInvFilterStatus, fPercentDone) == 0);
static_assert(offsetof(ovdStructInvFilterStatus, fMinutesLeft) == 4);
static_assert(offsetof(ovdStructInvFilterStatus, sIteration) == 8);
static_assert(offsetof(ovdStructInvFilterStatus, sIterationCount) == 10);
static_assert(offsetof(ovdStructInvFilterStatus, sSubvolume) == 12);
static_assert(offsetof(ovdStructInvFilterStatus, sSubvolumeCount) == 14);
static_assert(offsetof(ovdStructInvFilterStatus, sStage) == 16);
static_assert(sizeof(ovdStructInvFilterStatus) == 20);

// The records are plain data: a host may clear them with memset and copy them bytewise.
static_assert(std::is_trivial_v<ovdStructInvFilterImage> &&
              std::is_standard_layout_v<ovdStructInvFilterImage>);
static_assert(std::is_trivial_v<ovdStructInvFilterPsf> &&
              std::is_standard_layout_v<ovdStructInvFilterPsf>);
static_assert(std::is_trivial_v<ovdStructInvFilterOpsStd> &&
              std::is_standard_layout_v<ovdStructInvFilterOpsStd>);
static_assert(std::is_trivial_v<ovdStructInvFilterOpsExp> &&
              std::is_standard_layout_v<ovdStructInvFilterOpsExp>);
static_assert(std::is_trivial_v<ovdStructInvFilterStatus> &&
              std::is_standard_layout_v<ovdStructInvFilterStatus>);

// The argument lists, place by place.
using DetectSA = uint16_t(const char*, const char*, int16_t, int16_t, int16_t, float, float, float,
                          float, float, float, uint16_t, uint16_t, uint32_t, int16_t, int16_t,
                          int16_t, uint16_t, uint16_t, float, float, float*, uint16_t, uint16_t,
                          uint16_t, ovdHostStatusCallback, void*);
static_assert(std::is_same_v<decltype(ovd3dInverseFilterDetectSA), DetectSA>);

using FlatInverseFilter = uint16_t(const char*, const char*, const char*, int16_t, int16_t, int16_t,
                                   float, float, float, float, float, float, uint16_t, uint16_t,
                                   uint32_t, int16_t, int16_t, int16_t, uint16_t, uint16_t, float,
                                   uint16_t, uint16_t, uint16_t, const char*, int16_t, int16_t,
                                   int16_t, float, float, float, const char*, int16_t*, int16_t*,
                                   int16_t*, float*, float*, float*, ovdHostStatusCallback, void*);
static_assert(std::is_same_v<decltype(DLL_OVD_3DIF), FlatInverseFilter>);

static_assert(std::is_same_v<decltype(ovd3dInverseFilter),
                             uint16_t(const ovdStructInvFilterImage*, const ovdStructInvFilterPsf*,
                                      ovdStructInvFilterPsf*, const ovdStructInvFilterOpsStd*,
                                      const ovdStructInvFilterOpsExp*, ovdStatusCallback, void*)>);
static_assert(
    std::is_same_v<decltype(ovdInitStructInvFilterOpsStd), uint16_t(ovdStructInvFilterOpsStd*)>);
static_assert(
    std::is_same_v<decltype(ovdInitStructInvFilterOpsExp), uint16_t(ovdStructInvFilterOpsExp*)>);
static_assert(std::is_same_v<ovdStatusCallback, uint16_t (*)(ovdStructInvFilterStatus*, void*)>);
static_assert(std::is_same_v<ovdHostStatusCallback,
                             uint16_t (*)(void*, uint32_t, float, uint32_t, uint32_t, float)>);

// A byte image written at the documented offsets reads back field by field: the offsets
// above are the ones the compiler really uses for access, not just what offsetof claims.
TEST(RecordLayout, ExpertRecordReadsFromItsDocumentedBytes) {
    unsigned char bytes[sizeof(ovdStructInvFilterOpsExp)] = {};
    const float noise = 2e-5f, memory = 100.0f;
    const int16_t xy = 10, z = 6, overlap = 10, reserved = 4;
    std::memcpy(bytes + 0, &noise, 4);
    std::memcpy(bytes + 4, &memory, 4);
    std::memcpy(bytes + 8, &xy, 2);
    std::memcpy(bytes + 10, &z, 2);
    std::memcpy(bytes + 12, &overlap, 2);
    std::memcpy(bytes + 14, &reserved, 2);
    bytes[16] = 1;
    ovdStructInvFilterOpsExp ops;
    std::memcpy(&ops, bytes, sizeof ops);
    EXPECT_EQ(ops.fNoiseFactor, noise);
    EXPECT_EQ(ops.fMemoryPercent, memory);
    EXPECT_EQ(ops.sXYGuardBand, 10);
    EXPECT_EQ(ops.sZGuardBand, 6);
    EXPECT_EQ(ops.sOverlap, 10);
    EXPECT_EQ(ops.sReserved, 4);
    EXPECT_EQ(ops.bXYMontage, 1);
    EXPECT_EQ(ops.bReserved, 0);
}
