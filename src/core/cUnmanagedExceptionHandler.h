#pragma once
#include <exception>
#include <memory>
#include <string>

#include "core/ClassLevelLockable.h"
#include "core/cException.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// Translates every failure on its way out of an object: the library's own exceptions get
// the context prepended to their where text, foreign ones become code 1.
class cUnmanagedExceptionHandler : public cOvdObject,
                                   private ClassLevelLockable<cUnmanagedExceptionHandler> {
public:
    cUnmanagedExceptionHandler();
    ~cUnmanagedExceptionHandler() override;

    static cUnmanagedExceptionHandler& Instance();

    cException Process(const std::exception& failure, const std::string& context);
    cException GetLastException() const;

private:
    // The latest translation; shared by all threads on purpose (see Process).
    std::unique_ptr<cException> mLast;
};

} // namespace Ovidane
