#include "monitor/event_sink.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "core/event_log.h"

namespace monitor {

namespace {

void DefaultSink(const char* line) { gEventLog.Write("%s", line); }

std::atomic<EventSink> gSink{&DefaultSink};

std::vector<std::string>* gCaptured = nullptr;
// The monitor thread may log while a test captures; the test reads the
// lines once that thread has stopped.
std::mutex gCaptureMutex;

void CaptureSink(const char* line) {
    std::lock_guard<std::mutex> lock(gCaptureMutex);
    if (gCaptured) gCaptured->emplace_back(line);
}

}  // namespace

void SetEventSink(EventSink sink) { gSink.store(sink ? sink : &DefaultSink, std::memory_order_release); }

void EventLineV(const char* format, va_list args) {
    char message[4096];
    std::vsnprintf(message, sizeof message, format ? format : "", args);
    gSink.load(std::memory_order_acquire)(message);
}

void EventLine(const char* format, ...) {
    va_list args;
    va_start(args, format);
    EventLineV(format, args);
    va_end(args);
}

CapturedEvents::CapturedEvents() {
    gCaptured = new std::vector<std::string>();
    SetEventSink(&CaptureSink);
}

CapturedEvents::~CapturedEvents() {
    SetEventSink(nullptr);
    std::lock_guard<std::mutex> lock(gCaptureMutex);
    delete gCaptured;
    gCaptured = nullptr;
}

const std::vector<std::string>& CapturedEvents::lines() const { return *gCaptured; }

bool CapturedEvents::Contains(const std::string& line) const {
    return std::find(gCaptured->begin(), gCaptured->end(), line) != gCaptured->end();
}

void CapturedEvents::Clear() {
    std::lock_guard<std::mutex> lock(gCaptureMutex);
    gCaptured->clear();
}

}  // namespace monitor
