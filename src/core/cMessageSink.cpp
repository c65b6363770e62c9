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
        Deliver();
        return 0;
    }

private:
    static std::string& Pending() {
        thread_local std::string pending;
        return pending;
    }

    void Deliver() {
        std::string& line = Pending();
        if (line.empty())
            return;
        std::lock_guard lock(mMutex);
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
