#include "RunLog.h"

#include <cstdarg>
#include <cstdio>

#include "TiffStack.h"
#include "interface/ovdinf01.h"

namespace ovdtool {

void AddMessageOptions(CLI::App* command, MessageOptions& messages) {
    command->add_option("--log", messages.logFile,
                        "write the run's lines and the library's own to this file");
    command->add_flag("--verbose,-v", messages.verbose,
                      "show the run's choices, each stage with its time and the result's range");
    command->add_flag("--debug", messages.debug,
                      "also show the library's own message lines (memory reports, internals)");
}

RunLog::RunLog(const MessageOptions& messages)
    : mVerbose(messages.verbose || messages.debug), mDebug(messages.debug) {
    if (!messages.logFile.empty()) {
        mFile = std::make_unique<std::ofstream>(messages.logFile);
        if (!*mFile)
            throw StackError(messages.logFile + ": cannot write the log file");
    }
    if (mDebug || mFile)
        ovdSetMessageCallback(&RunLog::OnLibraryLine, this);
    else
        ovdSetMessageCallback(nullptr, nullptr);
}

RunLog::~RunLog() {
    ovdSetMessageCallback(nullptr, nullptr);
}

void RunLog::OnLibraryLine(const char* line, void* self) {
    static_cast<RunLog*>(self)->Write(line, true);
}

void RunLog::Write(const std::string& line, bool library) {
    if (mFile)
        *mFile << line << (library ? "" : "\n") << std::flush;
    if (library ? mDebug : mVerbose) {
        std::fputs(library ? line.c_str() : ("ovd: " + line + "\n").c_str(), stderr);
    }
}

void RunLog::Note(const char* format, ...) {
    if (!Shown())
        return;
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    Write(line, false);
}

void RunLog::Stage(const char* stage, const Stopwatch& watch, const std::string& detail) {
    Note("%s: %.2f s%s", stage, watch.Seconds(), detail.c_str());
}

} // namespace ovdtool
