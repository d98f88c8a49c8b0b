// The event log: "ardentium_log.txt" in the directory the process was started
// from, one line per event, every line on disk when Write returns.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "platform/compiler.h"
#include "platform/platform.h"


class EventLog {
public:
    static constexpr size_t kPrefixSize = 128;
    static constexpr size_t kMessageSize = 4096;

    // Opens (truncating) the file by the given relative or absolute name.
    explicit EventLog(const char* fileName);

    // printf-style; the message is cut at 4095 characters.
    void Write(const char* format, ...) ARD_PRINTF_LIKE(2, 3);
    void WriteV(const char* format, va_list args);

    bool IsOpen() const { return file_.IsOpen(); }
    unsigned LineCount() const { return counter_.load(std::memory_order_relaxed); }
    // The program folder's path of the log, formatted at start but never used to open it.
    const std::string& FullPath() const { return fullPath_; }

    // The messages (without prefix) of the lines numbered above `afterLine`,
    // oldest first, as far as the last kRecentLines lines reach: what went
    // wrong in a step the caller just took, to show the user where they are.
    static constexpr size_t kRecentLines = 64;
    std::vector<std::string> LinesAfter(unsigned afterLine) const;

    // "2015/7/9 @ 10:04:51, ID=1 >> " for the given local time and line number.
    static void FormatPrefix(const std::tm& t, unsigned id, char* out, size_t outSize);

private:
    platform::LineFile file_;
    std::atomic<unsigned> counter_{0};
    std::string fullPath_;
    mutable std::mutex recentLock_;
    struct Recent {
        unsigned id = 0;
        std::string message;
    };
    Recent recent_[kRecentLines];
};

// The process-wide log, opened during static initialisation.
extern EventLog gEventLog;

constexpr const char* kEventLogFileName = "ardentium_log.txt";
