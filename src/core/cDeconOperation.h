#pragma once
#include "core/cOvdLoggingObject.h"

namespace Ovidane {

// Common base of everything that takes part in a deconvolution.
class cDeconOperation : public cOvdLoggingObject {
public:
    using cOvdLoggingObject::cOvdLoggingObject;
};

} // namespace Ovidane
