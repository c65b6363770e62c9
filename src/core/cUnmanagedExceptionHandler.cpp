#include "core/cUnmanagedExceptionHandler.h"

#include <cstring>

#include "core/cSingletonHolder.h"

namespace Ovidane {

cUnmanagedExceptionHandler::cUnmanagedExceptionHandler() : cOvdObject("cUnmanagedExceptionHandler") {}

cUnmanagedExceptionHandler::~cUnmanagedExceptionHandler() = default;

cUnmanagedExceptionHandler& cUnmanagedExceptionHandler::Instance() {
    return cSingletonHolder<cUnmanagedExceptionHandler>::Instance();
}

cException cUnmanagedExceptionHandler::Process(const std::exception& failure,
                                               const std::string& context) {
    try {
        mLast.reset();
        const char* text = failure.what();
        std::unique_ptr<cException> translated;
        if (std::strcmp(text, "Unknown exception") == 0) {
            // Our own type (or one that claims to be): keep message and code, and let the
            // where text read from the outermost caller down to the origin.
            // A foreign type that merely answers the same text carries no where text,
            // message or code of ours; it keeps the path and counts as a foreign failure.
            const auto* own = dynamic_cast<const cException*>(&failure);
            translated = own ? std::make_unique<cException>(context + "/" + own->GetWhere(),
                                                            own->GetMessage(), own->GetCode())
                             : std::make_unique<cException>(context + "/", text, OVD_ERR_FOREIGN);
        } else {
            translated = std::make_unique<cException>(std::string(text) + " exception in " + context,
                                                      context, OVD_ERR_FOREIGN);
        }
        mLast = std::move(translated);
        return *mLast;
    } catch (const std::exception& inner) {
        throw cException(std::string(inner.what()) + " exception in cExceptionHandler::Process",
                         GetObjectName(), OVD_ERR_FOREIGN);
    }
}

cException cUnmanagedExceptionHandler::GetLastException() const {
    if (!mLast)
        throw cException(GetObjectName(), "Empty", 0);
    return *mLast;
}

cException TranslateException(const std::exception& failure, const std::string& context) {
    return cUnmanagedExceptionHandler::Instance().Process(failure, context);
}

} // namespace Ovidane
