// The millisecond clock of all frame timing: a fine counter, checked against
// the coarse tick count so that a counter that jumps (power states, buggy
// chipsets, a virtual machine's migration) cannot make a frame look minutes
// long.
#pragma once

#include <cstdint>

class ClockSource {
public:
    virtual ~ClockSource() = default;
    virtual int64_t Frequency() = 0;  // counts per second
    virtual int64_t Counter() = 0;
    virtual uint32_t Ticks() = 0;     // milliseconds, coarse
};

// The system's clocks (QueryPerformanceCounter/GetTickCount on Windows, a raw
// monotonic clock against the coarse monotonic clock on Linux).
ClockSource& SystemClock();

class HiResTimer {
public:
    explicit HiResTimer(ClockSource& clock = SystemClock()) : clock_(clock) {}
    void Start();
    // Milliseconds since Start.
    unsigned Milliseconds();

private:
    ClockSource& clock_;
    int64_t frequency_ = 1;
    int64_t origin_ = 0;
    uint32_t startTick_ = 0;
    int64_t lastDistance_ = 0;
    int reads_ = 0;
};
