// The UI thread's way to the running test object. The object belongs to the
// render thread, which may tear it down at any moment; the UI thread's keys
// reach it only through With(), and the render thread waits in Withdraw()
// until no key handler is still touching it.
#pragma once

#include <atomic>
#include <thread>

#include "runner/lm4d_demo.h"

class DemoAccess {
public:
    static void Publish(cLm4DDemo* demo) { demo_.store(demo); }

    static void Withdraw() {
        demo_.store(nullptr);
        while (users_.load() > 0) std::this_thread::yield();
    }

    // Runs fn on the current object; false (and fn not run) when there is none.
    template <typename Fn>
    static bool With(Fn&& fn) {
        users_.fetch_add(1);
        cLm4DDemo* d = demo_.load();
        if (d) fn(*d);
        users_.fetch_sub(1);
        return d != nullptr;
    }

private:
    static inline std::atomic<cLm4DDemo*> demo_{nullptr};
    static inline std::atomic<int> users_{0};
};
