#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
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

namespace {
// Reports when the thread that owns it ends, like a service that prints on its way out.
struct ReporterAtThreadEnd {
    ~ReporterAtThreadEnd() { cMessageSink::Stream() << "late report" << std::endl; }
};
} // namespace

TEST(cMessageSink, LinesWrittenAfterTheThreadsOwnLineIsGoneStillArrive) {
    std::ostringstream captured;
    cMessageSink::ToStream(captured);
    std::thread worker([] {
        thread_local ReporterAtThreadEnd reporter; // made first, so it goes after the line
        (void)&reporter;
        // Long enough that the pending line's text lives on the heap.
        cMessageSink::Stream() << "an early line, long enough to leave the small buffer\n";
    });
    worker.join();
    cMessageSink::ToStandardOutput();
    EXPECT_EQ(captured.str(),
              "an early line, long enough to leave the small buffer\nlate report\n");
}
