#pragma once
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace Ovidane {

class cException;

// Translates any std::exception through the process-wide handler with `context`.
cException TranslateException(const std::exception& failure, const std::string& context);

// The one shape of the error path: run `body`; a std::exception leaving it is translated
// with `context` and the translation is thrown in its place.
template <class Body> decltype(auto) GuardedCall(const std::string& context, Body&& body);

} // namespace Ovidane

#include "core/cException.h"

namespace Ovidane {

template <class Body> decltype(auto) GuardedCall(const std::string& context, Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (const std::exception& failure) {
        throw TranslateException(failure, context);
    }
}

} // namespace Ovidane
