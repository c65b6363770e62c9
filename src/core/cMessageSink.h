#pragma once
#include <ostream>
#include <string>

namespace Ovidane {

// The one place where the library's message lines leave the process. Every logging
// object writes to Stream(), which collects whole lines and hands each to the current
// target: the process's standard output (the default), a host's stream or function, or
// nothing at all. Redirecting affects objects that already exist, since they all hold
// this one stream.
class cMessageSink {
public:
    using LineFunction = void (*)(const char* line, void* userData);

    static std::ostream& Stream();

    static void ToStandardOutput();
    static void ToStream(std::ostream& target);
    static void ToFunction(LineFunction function, void* userData);
    static void Silence();
};

} // namespace Ovidane
