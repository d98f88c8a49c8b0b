// Score submission and status posting: one HTTP POST at a time per kind, on
// a worker thread, so the dialog keeps drawing while the server takes its
// time. The dialog reads the state each frame.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class Submission {
public:
    enum class State { Idle, Sending, Done, Failed };

    explicit Submission(const char* what) : what_(what) {}
    ~Submission();
    Submission(const Submission&) = delete;
    Submission& operator=(const Submission&) = delete;

    // Starts the POST unless one is under way; false when one is.
    bool Start(const std::string& url, const std::string& body);
    State state() const { return state_.load(); }
    // What the user reads: "Sending...", "Score submitted (HTTP 200).",
    // "Score submission failed: HTTP 500 ...".
    std::string Text() const;
    // Back to Idle for the next run's dialog; a POST under way is left to finish.
    // (The destructor, at exit, cancels one instead of waiting its time-out.)
    void Reset();

private:
    void Finish(State state, const std::string& text);

    const char* what_;
    std::atomic<State> state_{State::Idle};
    std::atomic<bool> cancel_{false};  // the program is closing: a POST under way gives up
    mutable std::mutex lock_;
    std::string text_;
    std::thread worker_;
};
