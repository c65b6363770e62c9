#pragma once
#include <ostream>
#include <string>

#include "core/cMessageSink.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// An object that writes message lines. Both streams start at the process-wide message
// stream; the first receives the operation messages.
class cOvdLoggingObject : public cOvdObject {
public:
    cOvdLoggingObject() = default;
    explicit cOvdLoggingObject(std::string objectName) : cOvdObject(std::move(objectName)) {}

    std::ostream& MessageStream() const { return *mStream1; }
    std::ostream& SecondStream() const { return *mStream2; }
    void SetStreams(std::ostream& first, std::ostream& second) {
        mStream1 = &first;
        mStream2 = &second;
    }

private:
    std::ostream* mStream1 = &cMessageSink::Stream();
    std::ostream* mStream2 = &cMessageSink::Stream();
};

} // namespace Ovidane
