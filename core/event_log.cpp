#include "core/event_log.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

std::tm LocalNow() {
    std::time_t now = std::time(nullptr);
    std::tm t{};
#if defined(_WIN32)
    localtime_s(&t, &now);
#else
    localtime_r(&now, &t);
#endif
    return t;
}

}  // namespace

EventLog::EventLog(const char* fileName) {
    // Opened by the bare name, so the log lands in the start-up working
    // directory even though start-up later moves to the program folder.
    file_.OpenTruncate(fileName);
    fullPath_ = platform::FolderOf(platform::ExecutablePath()) + fileName;
}

void EventLog::FormatPrefix(const std::tm& t, unsigned id, char* out, size_t outSize) {
    std::snprintf(out, outSize, "%i/%i/%i @ %.2i:%.2i:%.2i, ID=%d >> ", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
                  t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(id));
}

void EventLog::Write(const char* format, ...) {
    va_list args;
    va_start(args, format);
    WriteV(format, args);
    va_end(args);
}

void EventLog::WriteV(const char* format, va_list args) {
    unsigned id = counter_.fetch_add(1, std::memory_order_relaxed) + 1;
    char message[kMessageSize];
    std::vsnprintf(message, sizeof message, format ? format : "", args);
    // One message, one line: a box text's line breaks (or a driver's string
    // ending in one) would start a line without the prefix that readers and
    // scripts split on. A run of breaks between words becomes one space;
    // breaks at either end go.
    {
        char* out = message;
        bool pendingSpace = false;
        for (const char* in = message; *in; ++in) {
            if (*in == '\n' || *in == '\r') {
                pendingSpace = out != message;
                continue;
            }
            if (pendingSpace) *out++ = ' ';
            pendingSpace = false;
            *out++ = *in;
        }
        *out = '\0';
    }

    // Prefix, message and line end go out in one write so that lines from
    // several threads never mix, without taking a lock.
    const char* nl = platform::TextNewline();
    char line[kPrefixSize + kMessageSize + 4];
    FormatPrefix(LocalNow(), id, line, kPrefixSize);
    size_t len = std::strlen(line);
    size_t mlen = std::strlen(message);
    std::memcpy(line + len, message, mlen);
    len += mlen;
    size_t nlen = std::strlen(nl);
    std::memcpy(line + len, nl, nlen);
    len += nlen;
    file_.Write(line, len);

    std::lock_guard<std::mutex> hold(recentLock_);
    Recent& slot = recent_[id % kRecentLines];
    if (slot.id < id) {  // a thread that was slower to get here keeps its older line out
        slot.id = id;
        slot.message.assign(message, mlen);
    }
}

std::vector<std::string> EventLog::LinesAfter(unsigned afterLine) const {
    std::lock_guard<std::mutex> hold(recentLock_);
    std::vector<const Recent*> found;
    for (const Recent& r : recent_)
        if (r.id > afterLine) found.push_back(&r);
    std::sort(found.begin(), found.end(), [](const Recent* a, const Recent* b) { return a->id < b->id; });
    std::vector<std::string> out;
    for (const Recent* r : found) out.push_back(r->message);
    return out;
}

// Constructed before main runs, so every line of the run, the first included, has a file to go to.
EventLog gEventLog(kEventLogFileName);
