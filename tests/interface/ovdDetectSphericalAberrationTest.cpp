#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "interface/ovdinf01.h"
#include "support/TempDir.h"

namespace {

// An estimate request as a host makes it: a small 16-bit stack and a temporary directory.
struct DetectCall {
    OvidaneTest::TempDir dir{"ovd-detect"};
    OvidaneTest::TempDir temp{"ovd-detect-temp"};
    std::string input = dir.File("stack.raw");
    std::string tempPath = temp.Path().string();
    const char* tempDirectory = tempPath.c_str();
    uint16_t pixelType = OVD_ARG_PIXEL_UINT16;
    float lower = -5.0f, upper = 5.0f;
    uint16_t reservedFlag = 0;
    float estimate = -99.0f;
    float* result = &estimate;

    explicit DetectCall(std::size_t bytes = 16 * 16 * 4 * 2) {
        std::vector<char> data(bytes, 1);
        std::ofstream(input, std::ios::binary).write(data.data(), std::streamsize(bytes));
    }

    uint16_t Call() {
        return ovd3dInverseFilterDetectSA(
            input.c_str(), tempDirectory, 16, 16, 4, 0.1f, 0.1f, 0.25f, 1.4f, 1.515f, 0.52f, 0, 0,
            0, 4, 2, 4, 1, pixelType, lower, upper, result, 0, 0, reservedFlag, nullptr, nullptr);
    }
};

} // namespace

TEST(ovdDetectSphericalAberrationTest, RefusedRequestsLeaveEstimateAndTemporaryDirectoryAlone) {
    {
        DetectCall call;
        call.tempDirectory = nullptr;
        EXPECT_EQ(call.Call(), OVD_RESULT_INVALID_ARGUMENT);
    }
    {
        DetectCall call;
        call.lower = 5.0f;
        call.upper = -5.0f;
        EXPECT_EQ(call.Call(), OVD_RESULT_INVALID_ARGUMENT);
        EXPECT_EQ(call.temp.Count(), 0u); // the validation's probe file is gone again
    }
    {
        DetectCall call;
        call.reservedFlag = 2;
        EXPECT_EQ(call.Call(), OVD_RESULT_INVALID_ARGUMENT);
    }
    {
        DetectCall call;
        call.result = nullptr;
        EXPECT_EQ(call.Call(), OVD_RESULT_INVALID_ARGUMENT);
    }
    {
        // No known pixel type: there is nothing to search, so no search is started.
        DetectCall call;
        call.pixelType = 3;
        EXPECT_EQ(call.Call(), OVD_RESULT_CONVERSION_FAILED);
        EXPECT_EQ(call.temp.Count(), 0u);
    }
    EXPECT_EQ(DetectCall().estimate, -99.0f);
}

TEST(ovdDetectSphericalAberrationTest, ShortInputFailsConversionWithoutLeavingACopy) {
    // The last slice of the 16-bit stack is missing.
    DetectCall call(16 * 16 * 3 * 2);
    EXPECT_EQ(call.Call(), OVD_RESULT_CONVERSION_FAILED);
    EXPECT_EQ(call.temp.Count(), 0u);
    EXPECT_EQ(call.estimate, -99.0f);
}
