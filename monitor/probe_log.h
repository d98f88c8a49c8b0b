// The monitoring library's own diagnostic logs. Each line is the local time
// as "2015/7/9 @ 10:04:51 >> " followed by the message; nothing is written
// while a log is disabled, which is how it starts.
//
//   gProbeLog  "_z.log"   the library's trace: start-up checkpoints, vendor
//                         library versions, per-GPU usage dumps
//   gAdlLog    "adl.log"  the AMD Display Library path
#pragma once

#include <atomic>
#include <cstdarg>
#include <ctime>
#include <string>

#include "platform/compiler.h"
#include "platform/platform.h"

namespace ProbeGPU {

class ProbeLog {
public:
    static constexpr size_t kMessageSize = 4096;

    explicit ProbeLog(const char* defaultFileName) : defaultFileName_(defaultFileName) {}

    // Opens (truncating) the file and starts writing. An empty path uses the
    // log's own file name in the current directory. False when the file
    // cannot be opened; the log then stays disabled.
    bool Enable(const std::string& path = std::string());
    void Disable();
    bool enabled() const { return enabled_.load(std::memory_order_acquire); }
    const char* defaultFileName() const { return defaultFileName_; }

    void Write(const char* format, ...) ARD_PRINTF_LIKE(2, 3);
    void WriteV(const char* format, va_list args);

    // "2015/7/9 @ 10:04:51 >> " for the given local time.
    static std::string FormatPrefix(const std::tm& t);

private:
    const char* defaultFileName_;
    std::atomic<bool> enabled_{false};
    platform::LineFile file_;
};

extern ProbeLog gProbeLog;
extern ProbeLog gAdlLog;

}  // namespace ProbeGPU
