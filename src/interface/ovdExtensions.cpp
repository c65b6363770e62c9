// The host extensions of the public header: process-wide settings of the library.
#include "core/cFailureReason.h"
#include "core/cMessageSink.h"
#include "core/cWorkerThreads.h"
#include "interface/ovdinf01.h"
#include "largevolume/SubvolumeMemoryBudget.h"

using namespace Ovidane;

extern "C" {

OVD_API void OVD_CALL ovdSetMessageCallback(ovdMessageCallback callback, void* userData) {
    if (callback)
        cMessageSink::ToFunction(callback, userData);
    else
        cMessageSink::Silence();
}

OVD_API void OVD_CALL ovdSetMessagesToStandardOutput(void) { cMessageSink::ToStandardOutput(); }

OVD_API void OVD_CALL ovdSetWorkerThreads(int32_t count) { cWorkerThreads::SetCount(count); }

OVD_API void OVD_CALL ovdSetMemoryBudget(int64_t bytes) { SetRunMemoryBudget(bytes); }

OVD_API const char* OVD_CALL ovdGetLastErrorMessage(void) {
    return cFailureReason::Text();
}

} // extern "C"
