#pragma once
#include "core/cException.h"

namespace Ovidane {

// A cancel asked for by the host's status callback. It is one of the library's own
// exceptions: it keeps cException's what(), so the translation on the way out recognises
// it like every other library failure and keeps its where text, message and code (200)
// instead of turning it into a foreign failure of code 1.
class cCancelException : public cException {
public:
    cCancelException() : cException("Status Update", "CANCEL", OVD_ERR_CANCEL) {}
};

} // namespace Ovidane
