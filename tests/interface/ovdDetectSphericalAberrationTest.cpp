#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "HostCallFixture.h"
#include "interface/ovdinf01.h"

namespace {

// An estimate request as a host makes it, on the fixture's stack and temporary directory.
struct DetectCall : HostCall {
    const char* tempDirectory = tempPath.c_str();
    uint16_t pixelType = OVD_ARG_PIXEL_UINT16;
    float lower = -5.0f, upper = 5.0f;
    uint16_t reservedFlag = 0;
    float estimate = -99.0f;
    float* result = &estimate;
    ovdHostStatusCallback callback = nullptr;
    void* userData = nullptr;
    // Set: the call goes through the search extension with this record.
    std::optional<ovdStructSASearch> search;

    uint16_t Call() {
        if (search)
            return ovd3dInverseFilterDetectSAWithSearch(
                input.c_str(), tempDirectory, 16, 16, 4, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0,
                0, 0, 4, 2, 4, 1, pixelType, lower, upper, result, 0, 0, reservedFlag, nullptr,
                &*search, callback, userData);
        return ovd3dInverseFilterDetectSA(
            input.c_str(), tempDirectory, 16, 16, 4, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0, 0,
            0, 4, 2, 4, 1, pixelType, lower, upper, result, 0, 0, reservedFlag, callback, userData);
    }
};

// Search records: the field values of the cases below.
ovdStructSASearch SearchRecord(uint32_t search, uint32_t binFactor, uint32_t reserved = 0) {
    ovdStructSASearch record;
    EXPECT_EQ(ovdInitStructSASearch(&record), OVD_RESULT_SUCCESS);
    EXPECT_EQ(record.nSearch, uint32_t(OVD_SA_SEARCH_FULL));
    record.nSearch = search;
    record.nBinFactor = binFactor;
    record.nReserved[1] = reserved;
    return record;
}

} // namespace

// Refused requests and inputs that cannot be converted leave the estimate and the temporary
// directory as they were; without a known pixel type no search is started. A search record
// is refused for what no search could do: an unknown search, a bin factor outside 2 to 8 or
// on the full search, reserved fields that aren't 0, and a factor that would leave the
// 16 x 16 stack fewer than 16 pixels wide.
TEST(ovdDetectSphericalAberrationTest, RefusedRequestsLeaveEstimateAndTemporaryDirectoryAlone) {
    struct Case {
        void (*spoil)(DetectCall&);
        uint16_t code;
    };
    constexpr uint16_t kRefused = OVD_RESULT_INVALID_ARGUMENT;
    constexpr uint32_t kBinned = OVD_SA_SEARCH_BINNED;
    const Case cases[] = {
        {[](DetectCall& c) { c.search = SearchRecord(2, 0); }, kRefused},
        {[](DetectCall& c) { c.search = SearchRecord(OVD_SA_SEARCH_FULL, 2); }, kRefused},
        {[](DetectCall& c) { c.search = SearchRecord(kBinned, 1); }, kRefused},
        {[](DetectCall& c) { c.search = SearchRecord(kBinned, 9); }, kRefused},
        {[](DetectCall& c) { c.search = SearchRecord(kBinned, 0, 1); }, kRefused},
        {[](DetectCall& c) { c.search = SearchRecord(kBinned, 2); }, kRefused},
        {[](DetectCall& c) { c.tempDirectory = nullptr; }, kRefused},
        {[](DetectCall& c) { c.lower = 5.0f, c.upper = -5.0f; }, kRefused},
        {[](DetectCall& c) { c.reservedFlag = 2; }, kRefused},
        {[](DetectCall& c) { c.result = nullptr; }, kRefused},
        {[](DetectCall& c) { std::filesystem::remove(c.input); }, kRefused},
        {[](DetectCall& c) { c.pixelType = 3; }, OVD_RESULT_CONVERSION_FAILED},
        // The last slice of the 16-bit stack is missing.
        {[](DetectCall& c) { std::filesystem::resize_file(c.input, 16 * 16 * 3 * 2); },
         OVD_RESULT_CONVERSION_FAILED},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        DetectCall call;
        c.spoil(call);
        EXPECT_EQ(call.Call(), c.code);
        EXPECT_EQ(call.temp.Count(), 0u);
        EXPECT_EQ(call.estimate, -99.0f);
    }
    EXPECT_EQ(ovdInitStructSASearch(nullptr), OVD_RESULT_INVALID_ARGUMENT);
}

namespace {

// A host that records the progress it is told and answers stop at a chosen report.
struct SearchHost {
    std::vector<std::pair<float, uint32_t>> reports; // percent, evaluation
    std::size_t stopAt = 0;

    static uint16_t OVD_CALL Report(void* self, uint32_t, float percent, uint32_t count, uint32_t,
                                    float) {
        auto* host = static_cast<SearchHost*>(self);
        host->reports.emplace_back(percent, count);
        return host->reports.size() == host->stopAt ? 0 : OVD_STATUS_CONTINUE;
    }
};

} // namespace

TEST(ovdDetectSphericalAberrationTest, SearchReportsEachEvaluationAndLeavesNothingBehind) {
    DetectCall call; // a float stack of one bead on a flat background
    const OvidaneTest::Bead bead{8, 8, 2, 3000.0f};
    OvidaneTest::WriteRaw(call.input,
                          OvidaneTest::MakeBeadStack(16, 16, 4, {bead}, kSigmaXY, kSigmaZ, 100).v);
    const auto before = std::filesystem::file_size(call.input);
    call.pixelType = OVD_ARG_PIXEL_FLOAT32;
    SearchHost host;
    call.callback = &SearchHost::Report;
    call.userData = &host;
    ASSERT_EQ(call.Call(), OVD_RESULT_SUCCESS);
    EXPECT_GE(call.estimate, call.lower);
    EXPECT_LE(call.estimate, call.upper);
    // The scan alone takes 11 evaluations; each reports once, counting from 1 in twentieths.
    ASSERT_GE(host.reports.size(), 11u);
    EXPECT_FLOAT_EQ(host.reports[0].first, 5.0f);
    EXPECT_EQ(host.reports[0].second, 1u);
    EXPECT_FLOAT_EQ(host.reports[11 - 1].first, 55.0f);
    EXPECT_EQ(call.temp.Count(), 0u);
    EXPECT_EQ(std::filesystem::file_size(call.input), before);

    // A stop during the scan ends the search with 1 and no estimate, and the cut goes too.
    DetectCall cancelled;
    SearchHost stopping;
    stopping.stopAt = 3;
    cancelled.callback = &SearchHost::Report;
    cancelled.userData = &stopping;
    EXPECT_EQ(cancelled.Call(), OVD_RESULT_RUN_FAILED);
    EXPECT_EQ(stopping.reports.size(), 3u);
    EXPECT_EQ(cancelled.estimate, 0.0f);
    EXPECT_EQ(cancelled.temp.Count(), 0u);
}
