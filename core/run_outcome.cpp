#include "core/run_outcome.h"

#include <atomic>
#include <cstdio>
#include <mutex>

#include "core/event_log.h"

namespace {

std::atomic<bool> gCouldNotStart{false};
std::atomic<bool> gRunFailed{false};
std::atomic<bool> gNotWritten{false};
std::atomic<bool> gStoppedEarly{false};
std::atomic<bool> gVerificationErrors{false};
std::mutex gErrorsLock;
std::vector<std::string> gErrors;

void KeepError(const std::string& what) {
    if (what.empty()) return;
    std::lock_guard<std::mutex> hold(gErrorsLock);
    gErrors.push_back(what);
}

}  // namespace

void NoteCouldNotStart(const std::string& what) {
    KeepError(what);
    gCouldNotStart = true;
}

void NoteRunFailed(const std::string& what) {
    KeepError(what);
    gRunFailed = true;
}

void NoteStoppedEarly() { gStoppedEarly = true; }

void NoteVerificationErrors(const std::string& what) {
    KeepError(what);
    gVerificationErrors = true;
}

void NoteResultNotWritten(const char* what, const std::string& path, const std::string& reason) {
    char text[1024];
    std::snprintf(text, sizeof text, "Unable to write %s [%s]: %s.", what, path.c_str(), reason.c_str());
    gEventLog.Write("%s", text);
    KeepError(text);
    gNotWritten = true;
}

std::vector<std::string> NotedErrors() {
    std::lock_guard<std::mutex> hold(gErrorsLock);
    return gErrors;
}

ExitCode CurrentExitCode() {
    if (gCouldNotStart) return kExitCouldNotStart;
    if (gRunFailed) return kExitRunFailed;
    if (gVerificationErrors) return kExitVerificationErrors;
    if (gNotWritten) return kExitResultsNotWritten;
    if (gStoppedEarly) return kExitStoppedEarly;
    return kExitOk;
}

void ResetRunOutcome() {
    gCouldNotStart = false;
    gRunFailed = false;
    gNotWritten = false;
    gStoppedEarly = false;
    gVerificationErrors = false;
    std::lock_guard<std::mutex> hold(gErrorsLock);
    gErrors.clear();
}
