// A failed call tells the host why, without the host parsing message lines: the reason of
// the calling thread's last failure, also written as one message line. The codes of the
// five operations stay as they are; only the reason is added.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <thread>

#include "HostCallFixture.h"
#include "interface/ovdRunSetup.h"
#include "interface/ovdinf01.h"

TEST(LastErrorMessage, FailuresNameTheirCauseUnderTheirOwnCodes) {
    struct Case {
        const char* what;
        void (*spoil)(HostCall&);
        uint16_t code;
        const char* reason;
    };
    const Case cases[] = {
        // The cut can't keep a guard band as wide as the stack; the code is a disk's.
        {"stack no wider than its guard band",
         [](HostCall& c) {
             c.image.sWidth = c.image.sHeight = 10;
             HostCall::WriteWords(c.input, 10 * 10 * 4);
         },
         OVD_RESULT_CANNOT_CREATE_FILE,
         "guard band of 10 pixels must be smaller than its width and height (10 x 10)"},
        {"stack shorter than its stated size", [](HostCall& c) { c.image.sDepth = 40; },
         OVD_RESULT_CONVERSION_FAILED, "shorter than its stated size, at slice 5 of 40"},
        {"stack without contrast",
         [](HostCall& c) {
             std::ofstream(c.input, std::ios::binary | std::ios::trunc)
                 .write(std::string(16 * 16 * 4 * 2, '\0').data(), 16 * 16 * 4 * 2);
         },
         OVD_RESULT_RUN_FAILED, "no contrast: every pixel is 0"},
        {"refused optics", [](HostCall& c) { c.image.fNumericalAperture = 0.25f; },
         OVD_RESULT_OPTICS_OUT_OF_RANGE, "numerical aperture out of range"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        HostCall call;
        c.spoil(call);
        std::string lines;
        ovdSetMessageCallback(
            [](const char* line, void* user) { *static_cast<std::string*>(user) += line; }, &lines);
        const uint16_t code = call.Restore();
        ovdSetMessagesToStandardOutput();
        EXPECT_EQ(code, c.code);
        const std::string reason = ovdGetLastErrorMessage();
        EXPECT_NE(reason.find(c.reason), std::string::npos) << reason;
        EXPECT_EQ(reason.find('\n'), std::string::npos);
        EXPECT_NE(lines.find(c.reason), std::string::npos);
    }
}

TEST(LastErrorMessage, IsClearedBySuccessAndKeptPerThread) {
    HostCall failing;
    failing.image.sDepth = 40;
    ovdSetMessageCallback(nullptr, nullptr);
    ASSERT_EQ(failing.Restore(), OVD_RESULT_CONVERSION_FAILED);
    ASSERT_STRNE(ovdGetLastErrorMessage(), "");

    // Another thread's calls neither see nor touch this thread's reason.
    std::string other = "unset";
    std::thread([&] {
        other = ovdGetLastErrorMessage();
        HostCall good;
        EXPECT_EQ(good.Restore(), OVD_RESULT_SUCCESS);
    }).join();
    EXPECT_EQ(other, "");
    EXPECT_NE(std::string(ovdGetLastErrorMessage()).find("shorter"), std::string::npos);

    HostCall good;
    EXPECT_EQ(good.Restore(), OVD_RESULT_SUCCESS);
    EXPECT_STREQ(ovdGetLastErrorMessage(), "");
    ovdSetMessagesToStandardOutput();
}

TEST(LastErrorMessage, FullTemporaryDiskIsSaidToBeFull) {
    OvidaneTest::TempDir mountPoint("ovd-tmpfs");
    if (::mount("tmpfs", mountPoint.Path().c_str(), "tmpfs", 0, "size=16k") != 0)
        GTEST_SKIP() << "this machine does not allow mounting a tmpfs";
    HostCall call;
    call.image.sWidth = call.image.sHeight = 64; // 64 KB of floats on a disk of 16 KB
    HostCall::WriteWords(call.input, 64 * 64 * 4);
    const std::string temp = mountPoint.Path().string();
    call.std.pszTempDirectory = temp.c_str();
    // The first disk test is told of ample room, as a disk that fills up under the run would
    // have shown; the cut's own test then finds the disk too small for the subvolumes' files.
    // A budget of 1 MB leaves the temporary files no memory: they go to the disk.
    Ovidane::ovdSetDiskSpaceQuery([](const std::string&) { return int64_t(1) << 40; });
    ovdSetMemoryBudget(1 << 20);
    ovdSetMessageCallback(nullptr, nullptr);
    const uint16_t code = call.Restore();
    const std::string reason = ovdGetLastErrorMessage();
    ovdSetMessagesToStandardOutput();
    ovdSetMemoryBudget(0);
    Ovidane::ovdSetDiskSpaceQuery(nullptr);
    const bool empty = std::filesystem::is_empty(mountPoint.Path());
    ::umount(mountPoint.Path().c_str());
    EXPECT_EQ(code, OVD_RESULT_CANNOT_CREATE_FILE);
    EXPECT_NE(reason.find("the temporary directory's disk has"), std::string::npos) << reason;
    EXPECT_TRUE(empty) << "the refused run left files in the temporary directory";
}
