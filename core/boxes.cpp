#include "core/boxes.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "core/event_log.h"
#include "platform/platform.h"

namespace {

std::atomic<BoxSink> gSink{nullptr};

void ShowAndLog(platform::BoxKind kind, const char* caption, const char* format, va_list args) {
    char text[4096];
    std::vsnprintf(text, sizeof text, format, args);
    if (BoxSink sink = gSink.load()) {
        gEventLog.Write("%s", text);
        sink(kind == platform::BoxKind::Error, text);
        return;
    }
    platform::ShowMessageBox(kind, caption, text);
    gEventLog.Write("%s", text);
}

}  // namespace

void ErrorBox(const char* format, ...) {
    va_list args;
    va_start(args, format);
    ShowAndLog(platform::BoxKind::Error, kErrorCaption, format, args);
    va_end(args);
}

void InformationBox(const char* format, ...) {
    va_list args;
    va_start(args, format);
    ShowAndLog(platform::BoxKind::Information, kInformationCaption, format, args);
    va_end(args);
}

void SetBoxSink(BoxSink sink) { gSink.store(sink); }
