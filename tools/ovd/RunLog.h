#pragma once
// What a run tells the person at the command line: with --verbose its choices, one line per
// stage with its time and the result's range; with --debug also the library's own message
// lines (memory reports and other internals); --log writes both to a file. The library's
// lines arrive through its one message sink, which the log takes over for the command.
#include <CLI/CLI.hpp>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>

namespace ovdtool {

struct MessageOptions {
    std::string logFile;
    bool verbose = false;
    bool debug = false;
};

void AddMessageOptions(CLI::App* command, MessageOptions& messages);

class Stopwatch {
public:
    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    }

private:
    std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

class RunLog {
public:
    // Throws a StackError when the log file can't be written.
    explicit RunLog(const MessageOptions& messages);
    // Silences the library first, since it may still speak at exit.
    ~RunLog();
    RunLog(const RunLog&) = delete;
    RunLog& operator=(const RunLog&) = delete;

    // One line for people; printf-style.
    void Note(const char* format, ...) __attribute__((format(printf, 2, 3)));
    bool Shown() const { return mVerbose || mFile; }

    // Notes "<stage>: <seconds> s<detail>".
    void Stage(const char* stage, const class Stopwatch& watch, const std::string& detail = "");

private:
    static void OnLibraryLine(const char* line, void* self);
    void Write(const std::string& line, bool library);

    bool mVerbose, mDebug;
    std::unique_ptr<std::ofstream> mFile;
};

} // namespace ovdtool
