// Where the monitor's event-log lines go. The monitor writes the program's
// event log (start-up report, bridge messages, complaints about bad vendor
// data) through this one indirection so that tests can read exactly the
// lines it produced without parsing the log file.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

#include "platform/compiler.h"

namespace monitor {

// Receives one finished line (no prefix, no line end).
using EventSink = void (*)(const char* line);

// nullptr restores the default sink, the program's event log.
void SetEventSink(EventSink sink);

// printf-style; cut at 4095 characters like the event log itself.
void EventLine(const char* format, ...) ARD_PRINTF_LIKE(1, 2);
void EventLineV(const char* format, va_list args);

// A sink for tests: keeps every line in memory. Not thread-safe; tests use it
// while only one thread writes.
class CapturedEvents {
public:
    CapturedEvents();
    ~CapturedEvents();
    CapturedEvents(const CapturedEvents&) = delete;
    CapturedEvents& operator=(const CapturedEvents&) = delete;
    const std::vector<std::string>& lines() const;
    bool Contains(const std::string& line) const;
    void Clear();
};

}  // namespace monitor
