#pragma once

namespace Ovidane {

// The one setting of how many threads a heavy operation (element-wise math, transforms,
// PSF planes, file conversion) may spread over. A run itself stays on the caller's thread;
// only the inside of such an operation fans out, and its result does not depend on this
// number.
class cWorkerThreads {
public:
    // At least 1; all processors of the process until a host says otherwise.
    static int Count();
    // A count of 0 or less goes back to all processors.
    static void SetCount(int count);
};

} // namespace Ovidane
