#pragma once
#include <exception>
#include <string>

namespace Ovidane {

// Why the current call on this thread failed, in one line a person can act on. A return
// code says only which kind of failure ended a call; the layer that meets the cause knows
// it (the cut that finds no subvolume, the full disk under a conversion, the exception that
// ends a run) and records it here. The exported operations clear it when they start and
// hand it to the host when they fail.
class cFailureReason {
public:
    // Forgets the reason of an earlier call on this thread.
    static void Clear();

    // Keeps the first reason of a call and writes it as one message line; later reasons of
    // the same call are dropped, since the deepest layer speaks first and the layers above
    // know less.
    static void Record(const std::string& reason);

    static bool IsRecorded();

    // The recorded reason; empty when none. Valid until the thread's next Clear or Record.
    static const char* Text();

    // One line for an exception that ended a call: the library's own exceptions give their
    // message and where text, a cancel says so, foreign ones their what() text.
    static std::string Describe(const std::exception& failure);
};

} // namespace Ovidane
