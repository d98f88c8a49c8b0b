#include "monitor/complaints.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <set>

#include "monitor/event_sink.h"

namespace ProbeGPU {

namespace {
// Rarely touched (only when something misbehaves), from the main and the
// monitor thread; a set of texts needs the lock.
std::mutex gMutex;
std::set<std::string>& Seen() {
    static std::set<std::string> seen;
    return seen;
}
}  // namespace

bool ComplainOnce(const std::string& key, const char* format, ...) {
    {
        std::lock_guard<std::mutex> lock(gMutex);
        if (!Seen().insert(key).second) return false;
    }
    char message[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    monitor::EventLine("%s", message);
    return true;
}

void ResetComplaints() {
    std::lock_guard<std::mutex> lock(gMutex);
    Seen().clear();
}

}  // namespace ProbeGPU
