#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "core/cDeconOperation.h"
#include "core/cMessageSink.h"

using namespace Ovidane;

TEST(cMessageSink, ExistingObjectsFollowRedirectionAndSilence) {
    cDeconOperation operation("cSomething");
    std::ostringstream captured;
    cMessageSink::ToStream(captured);
    operation.MessageStream() << "first " << 1 << "\n";
    operation.MessageStream() << "partial";
    EXPECT_EQ(captured.str(), "first 1\n"); // a line leaves only when it is whole
    operation.MessageStream() << "\n";
    EXPECT_EQ(captured.str(), "first 1\npartial\n");

    std::vector<std::string> lines;
    cMessageSink::ToFunction(
        [](const char* line, void* user) { static_cast<std::vector<std::string>*>(user)->push_back(line); },
        &lines);
    operation.SecondStream() << "to the host" << std::endl;
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "to the host\n");

    cMessageSink::Silence();
    operation.MessageStream() << "dropped\n";
    EXPECT_EQ(lines.size(), 1u);
    EXPECT_EQ(captured.str(), "first 1\npartial\n");
    cMessageSink::ToStandardOutput();
}
