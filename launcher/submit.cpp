#include "launcher/submit.h"

#include "core/event_log.h"
#include "platform/http.h"
#include "platform/platform.h"

namespace {

// Long enough for a slow server, short enough that a dead one is reported
// while the user still looks at the dialog.
constexpr int kTimeoutMs = 15000;

std::string FirstLine(const std::string& text) {
    std::string line = text.substr(0, text.find_first_of("\r\n"));
    if (line.size() > 120) line = line.substr(0, 120) + "...";
    return line;
}

}  // namespace

Submission::~Submission() {
    cancel_ = true;
    if (worker_.joinable()) worker_.join();
}

bool Submission::Start(const std::string& url, const std::string& body) {
    if (state_.load() == State::Sending) return false;
    if (worker_.joinable()) worker_.join();
    {
        std::lock_guard<std::mutex> hold(lock_);
        text_ = "Sending to " + url + "...";
    }
    state_ = State::Sending;
    gEventLog.Write("%s: sending to [%s].", what_, url.c_str());
    worker_ = std::thread([this, url, body] {
        platform::NameThisThread("submit");
        platform::HttpReply reply = platform::HttpPost(url, body, "application/json", kTimeoutMs, &cancel_);
        if (!reply.answered) {
            Finish(State::Failed, std::string(what_) + " failed: " + reply.error + ".");
        } else if (reply.status < 200 || reply.status > 299) {
            std::string text = std::string(what_) + " failed: the server answered HTTP " + std::to_string(reply.status);
            const std::string detail = FirstLine(reply.body);
            Finish(State::Failed, text + (detail.empty() ? "." : " (" + detail + ")."));
        } else {
            Finish(State::Done, std::string(what_) + " done: the server answered HTTP " +
                                    std::to_string(reply.status) + ".");
        }
    });
    return true;
}

void Submission::Finish(State state, const std::string& text) {
    gEventLog.Write("%s", text.c_str());
    std::lock_guard<std::mutex> hold(lock_);
    text_ = text;
    state_ = state;
}

std::string Submission::Text() const {
    std::lock_guard<std::mutex> hold(lock_);
    return text_;
}

void Submission::Reset() {
    // A POST under way keeps its line until it ends; nothing waits for it here.
    if (state_.load() == State::Sending) return;
    if (worker_.joinable()) worker_.join();
    std::lock_guard<std::mutex> hold(lock_);
    text_.clear();
    state_ = State::Idle;
}
