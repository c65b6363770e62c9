#include "core/cDeconParameter.h"

namespace Ovidane {

cDeconParameter::cDeconParameter() : cOvdObject("cParameter") {}

void cDeconParameter::SetFlag(DecFlagKey key, int32_t value) {
    Guard([&] {
        if (key < 1 || key >= kDecFlagKeyCount)
            Fail("Invalid Flag Parameter", OVD_ERR_PARAMETER);
        const cDecFlagRange accepted = DecFlagAcceptedRange(key);
        if (value >= accepted.first && value <= accepted.last)
            mFlags[key] = value;
    });
}

} // namespace Ovidane
