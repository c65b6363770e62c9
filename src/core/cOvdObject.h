#pragma once
#include <string>
#include <utility>

#include "core/ExceptionGuard.h"

namespace Ovidane {

// Root of the library's classes. The object name is the context that the error path
// adds when a failure passes through one of the object's members.
class cOvdObject {
public:
    cOvdObject() = default;
    explicit cOvdObject(std::string objectName) : mObjectName(std::move(objectName)) {}
    virtual ~cOvdObject() = default;

    const std::string& GetObjectName() const { return mObjectName; }

protected:
    void SetObjectName(std::string objectName) { mObjectName = std::move(objectName); }

    // Runs a whole member body; whatever escapes is translated with this object's name
    // as context and thrown on, so a failure gathers one name per object it leaves.
    template <class Body> decltype(auto) Guard(Body&& body) const {
        return GuardedCall(mObjectName, std::forward<Body>(body));
    }

    // A failure the member detects itself: where text is this object's name.
    [[noreturn]] void Fail(const std::string& message, uint16_t code) const;

    std::string mObjectName;
};

} // namespace Ovidane
