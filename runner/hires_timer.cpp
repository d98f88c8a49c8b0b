#include "runner/hires_timer.h"

#include "platform/platform.h"

namespace {

class PlatformClock : public ClockSource {
public:
    int64_t Frequency() override { return platform::FineCounterFrequency(); }
    int64_t Counter() override { return platform::FineCounter(); }
    uint32_t Ticks() override { return platform::TickCountMs(); }
};

}  // namespace

ClockSource& SystemClock() {
    static PlatformClock clock;
    return clock;
}

void HiResTimer::Start() {
    frequency_ = clock_.Frequency();
    if (frequency_ <= 0) frequency_ = 1;
    origin_ = clock_.Counter();
    startTick_ = clock_.Ticks();
    lastDistance_ = 0;
    reads_ = 0;
}

unsigned HiResTimer::Milliseconds() {
    int64_t counter = clock_.Counter();
    if (++reads_ >= 200) {
        // The frequency can change under some power-saving schemes.
        reads_ = 0;
        int64_t f = clock_.Frequency();
        if (f > 0) frequency_ = f;
    }
    int64_t distance = counter - origin_;
    int64_t ms = distance * 1000 / frequency_;
    int32_t drift = static_cast<int32_t>(startTick_ + static_cast<uint32_t>(ms) - clock_.Ticks());
    if (drift >= -100 && drift <= 100) {
        lastDistance_ = distance;
        return static_cast<unsigned>(ms);
    }
    // The counter jumped: take back the smaller of the jump and what the
    // counter gained since the last read.
    int64_t jump = static_cast<int64_t>(drift) * frequency_ / 1000;
    int64_t gained = distance - lastDistance_;
    int64_t correction = jump < gained ? jump : gained;
    origin_ += correction;
    distance -= correction;
    lastDistance_ = distance;
    return static_cast<unsigned>(distance * 1000 / frequency_);
}
