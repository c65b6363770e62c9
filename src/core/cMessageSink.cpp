#include "core/cMessageSink.h"

#include <iostream>
#include <mutex>
#include <streambuf>

namespace Ovidane {
namespace {

enum class TargetKind { StandardOutput, Stream, Function, Nothing };

// Collects characters per thread until a line feed, then delivers the line whole, so
// lines of two threads never interleave inside the target.
class LineBuffer : public std::streambuf {
public:
    void SetTarget(TargetKind kind, std::ostream* stream, cMessageSink::LineFunction function,
                   void* userData) {
        std::lock_guard lock(mMutex);
        mKind = kind;
        mStream = stream;
        mFunction = function;
        mUserData = userData;
    }

protected:
    int_type overflow(int_type ch) override {
        if (traits_type::eq_int_type(ch, traits_type::eof()))
            return traits_type::not_eof(ch);
        if (tPendingGone) {
            // The thread is past the teardown of its own line; what it still writes (reports
            // of services that go at exit) collects in one shared line under the lock.
            std::lock_guard lock(mMutex);
            LateLine().push_back(traits_type::to_char_type(ch));
            if (ch == '\n')
                DeliverLocked(LateLine());
            return ch;
        }
        Pending().push_back(traits_type::to_char_type(ch));
        if (ch == '\n')
            Deliver();
        return ch;
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override {
        for (std::streamsize i = 0; i < count; ++i)
            overflow(traits_type::to_int_type(text[i]));
        return count;
    }

    int sync() override {
        if (tPendingGone) {
            std::lock_guard lock(mMutex);
            DeliverLocked(LateLine());
        } else {
            Deliver();
        }
        return 0;
    }

private:
    // A thread's pending line is a thread-local object, and thread-locals go before the
    // process's exit handlers run (and before a thread's later thread-local destructors).
    // Singletons that report when they are destroyed write after that point, so the line
    // marks its own end in a flag that needs no destruction.
    static inline thread_local bool tPendingGone = false;

    struct PendingLine {
        std::string text;
        ~PendingLine() { tPendingGone = true; }
    };

    static std::string& Pending() {
        thread_local PendingLine pending;
        return pending.text;
    }

    std::string& LateLine() {
        static std::string* line = new std::string; // never destroyed, like the sink itself
        return *line;
    }

    void Deliver() {
        std::string& line = Pending();
        if (line.empty())
            return;
        std::lock_guard lock(mMutex);
        DeliverLocked(line);
    }

    void DeliverLocked(std::string& line) {
        if (line.empty())
            return;
        switch (mKind) {
        case TargetKind::StandardOutput:
            std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
            std::cout.flush();
            break;
        case TargetKind::Stream:
            mStream->write(line.data(), static_cast<std::streamsize>(line.size()));
            mStream->flush();
            break;
        case TargetKind::Function:
            mFunction(line.c_str(), mUserData);
            break;
        case TargetKind::Nothing:
            break;
        }
        line.clear();
    }

    std::mutex mMutex;
    TargetKind mKind = TargetKind::StandardOutput;
    std::ostream* mStream = nullptr;
    cMessageSink::LineFunction mFunction = nullptr;
    void* mUserData = nullptr;
};

LineBuffer& Buffer() {
    static LineBuffer* buffer = new LineBuffer; // outlives every static that may still log
    return *buffer;
}

} // namespace

std::ostream& cMessageSink::Stream() {
    static std::ostream* stream = new std::ostream(&Buffer());
    return *stream;
}

void cMessageSink::ToStandardOutput() {
    Buffer().SetTarget(TargetKind::StandardOutput, nullptr, nullptr, nullptr);
}

void cMessageSink::ToStream(std::ostream& target) {
    Buffer().SetTarget(TargetKind::Stream, &target, nullptr, nullptr);
}

void cMessageSink::ToFunction(LineFunction function, void* userData) {
    if (!function)
        return Silence();
    Buffer().SetTarget(TargetKind::Function, nullptr, function, userData);
}

void cMessageSink::Silence() { Buffer().SetTarget(TargetKind::Nothing, nullptr, nullptr, nullptr); }

} // namespace Ovidane
