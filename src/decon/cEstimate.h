#pragma once
#include "core/cDeconOperation.h"

namespace Ovidane {

// Derives one number that a restoration needs from the data themselves.
class cEstimate : public cDeconOperation {
public:
    using cDeconOperation::cDeconOperation;
    ~cEstimate() override = default;

    virtual void Initialize() = 0;
    virtual void Estimate() = 0;
};

} // namespace Ovidane
