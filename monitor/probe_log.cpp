#include "monitor/probe_log.h"

#include <cstdio>
#include <cstring>

namespace ProbeGPU {

ProbeLog gProbeLog("_z.log");
ProbeLog gAdlLog("adl.log");

bool ProbeLog::Enable(const std::string& path) {
    Disable();
    const std::string name = path.empty() ? std::string(defaultFileName_) : path;
    if (!file_.OpenTruncate(name.c_str())) return false;
    enabled_.store(true, std::memory_order_release);
    return true;
}

void ProbeLog::Disable() {
    // Only the main thread switches a log on or off, before the monitor
    // thread starts and after it ended.
    enabled_.store(false, std::memory_order_release);
    file_.Close();
}

std::string ProbeLog::FormatPrefix(const std::tm& t) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%i/%i/%i @ %.2i:%.2i:%.2i >> ", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour,
                  t.tm_min, t.tm_sec);
    return buf;
}

void ProbeLog::Write(const char* format, ...) {
    va_list args;
    va_start(args, format);
    WriteV(format, args);
    va_end(args);
}

void ProbeLog::WriteV(const char* format, va_list args) {
    if (!enabled()) return;
    std::time_t now = std::time(nullptr);
    std::tm t{};
#if defined(_WIN32)
    localtime_s(&t, &now);
#else
    localtime_r(&now, &t);
#endif
    char message[kMessageSize];
    std::vsnprintf(message, sizeof message, format ? format : "", args);
    std::string line = FormatPrefix(t);
    line += message;
    line += platform::TextNewline();
    // One write per line: the monitor thread and the main thread may both log.
    file_.Write(line.data(), line.size());
}

}  // namespace ProbeGPU
