#pragma once
#include <cstdint>
#include <string>

namespace Ovidane {

// Interval timer over a 32-bit counter; the count wraps, the difference stays right
// for intervals shorter than one wrap.
class HighResTimer {
public:
    explicit HighResTimer(const std::string& name) : mName(name.substr(0, 30)) {}
    virtual ~HighResTimer() = default;

    virtual uint32_t GetCount() const = 0;
    virtual uint32_t GetFrequency() const = 0;

    void Start() { mStart = GetCount(); }
    uint32_t GetElapsedCounts() const { return GetCount() - mStart; }
    const std::string& GetName() const { return mName; }

private:
    uint32_t mStart = 0;
    std::string mName;
};

// The timer on the platform's monotonic clock, counting at 3579000 per second.
class cMonotonicTimer : public HighResTimer {
public:
    using HighResTimer::HighResTimer;
    uint32_t GetCount() const override;
    uint32_t GetFrequency() const override { return 3579000; }
};

} // namespace Ovidane
