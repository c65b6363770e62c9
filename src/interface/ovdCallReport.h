#pragma once
// How every exported operation that can fail tells the host why: the reason of its failure
// is kept for the calling thread (ovdGetLastErrorMessage) and written as a message line.
#include <cstdint>
#include <exception>

#include "core/cFailureReason.h"

namespace Ovidane {

// What a return code means, for a failure whose layer recorded no closer cause.
const char* ovdResultMeaning(uint16_t code);

// Runs one exported operation: the thread's last reason is cleared first; an exception
// that leaves `body` ends the call with 1 and its description; a failed call that recorded
// no cause gets its code's meaning. The codes are those `body` returns.
template <class Body> uint16_t ovdReportedCall(Body&& body) noexcept {
    uint16_t code = 1;
    try {
        cFailureReason::Clear();
        code = body();
    } catch (const std::exception& failure) {
        try {
            cFailureReason::Record(cFailureReason::Describe(failure));
        } catch (...) {
        }
    } catch (...) {
    }
    try {
        if (code == 0)
            cFailureReason::Clear();
        else
            cFailureReason::Record(ovdResultMeaning(code));
    } catch (...) {
    }
    return code;
}

} // namespace Ovidane
