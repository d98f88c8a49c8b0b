// One HTTP POST, for score submission and status posting. It blocks until
// the server answers or the time-out passes: call it from a worker thread.
#pragma once

#include <atomic>
#include <string>

namespace platform {

struct HttpReply {
    bool answered = false;  // the server sent a status line
    int status = 0;         // its HTTP status code
    std::string body;       // the first few kilobytes of its answer
    std::string error;      // why there was no answer (refused, time-out, bad address...)
};

// `cancel`, when given and set by another thread, ends the wait within about
// a second with the error "cancelled". `timeoutMs` bounds the whole exchange.
HttpReply HttpPost(const std::string& url, const std::string& body, const char* contentType, int timeoutMs,
                   const std::atomic<bool>* cancel = nullptr);

}  // namespace platform
