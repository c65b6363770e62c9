#include <type_traits>

#include "interface/ovdinf01.h"

// The byte layout is checked where it is fixed, in the 32-bit compilation of the header.
// The records are plain data: a host may clear them with memset and copy them bytewise.
template <class... Record>
constexpr bool kPlainData = ((std::is_trivial_v<Record> && std::is_standard_layout_v<Record>)&&...);
static_assert(kPlainData<ovdStructInvFilterImage, ovdStructInvFilterPsf, ovdStructInvFilterOpsStd,
                         ovdStructInvFilterOpsExp, ovdStructInvFilterStatus>);

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
static_assert(std::is_same_v<decltype(ovdWriteTheoreticalPsf),
                             uint16_t(const char*, int16_t, int16_t, int16_t, float, float, float,
                                      float, float, float, uint16_t, float)>);
static_assert(std::is_same_v<ovdStatusCallback, uint16_t (*)(ovdStructInvFilterStatus*, void*)>);
static_assert(std::is_same_v<ovdHostStatusCallback,
                             uint16_t (*)(void*, uint32_t, float, uint32_t, uint32_t, float)>);
