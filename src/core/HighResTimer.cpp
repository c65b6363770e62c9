#include "core/HighResTimer.h"

#include "platform/Platform.h"

namespace Ovidane {

uint32_t cMonotonicTimer::GetCount() const {
    const unsigned __int128 ticks =
        static_cast<unsigned __int128>(Platform::MonotonicNanoseconds()) * 3579000u / 1000000000u;
    return static_cast<uint32_t>(ticks);
}

} // namespace Ovidane
