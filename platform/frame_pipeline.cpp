#include "platform/frame_pipeline.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/platform.h"

namespace platform {

namespace {

class SystemClock : public WaitClock {
public:
    SystemClock() {
        const char* v = std::getenv("ARDENTIUM_PACED_WAIT");
        const bool paced = !(v && std::strcmp(v, "0") == 0);
        // Sleeping shorter than a few timer ticks would mostly be overshoot.
        minSleep_ = paced ? 2.0 * SleepResolution() : std::numeric_limits<double>::infinity();
    }
    double Now() override {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }
    void Sleep(double seconds) override { SleepPrecise(seconds); }
    double MinSleep() override { return minSleep_; }

private:
    double minSleep_ = 0;
};

}  // namespace

WaitClock& SystemWaitClock() {
    static SystemClock clock;
    return clock;
}

}  // namespace platform
