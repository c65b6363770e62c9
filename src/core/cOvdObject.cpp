#include "core/cOvdObject.h"

#include "core/cException.h"

namespace Ovidane {

void cOvdObject::Fail(const std::string& message, uint16_t code) const {
    throw cException(mObjectName, message, code);
}

} // namespace Ovidane
