#pragma once
#include "interface/ovdinf01.h"

namespace Ovidane {

// The host's function of the argument-list forms and its user data, carried as the user
// data of a record-form callback.
struct ovdHostCallbackRecord {
    ovdHostStatusCallback function;
    void* userData;
};

// A record-form status callback that forwards to an ovdHostCallbackRecord. Without a
// record or a function it answers "continue" at once.
uint16_t ovdHostCallbackAdapter(ovdStructInvFilterStatus* status, void* record);

} // namespace Ovidane
