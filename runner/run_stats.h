// Counters and FPS statistics of the current run, and the run-control flags
// shared between the UI thread and the render thread. Each is one word
// written by one thread; readers may see values of two consecutive samples,
// which is fine for what they show.
#pragma once

#include <atomic>

struct RunStatsRecord {
    std::atomic<int> current_fps{0};
    std::atomic<int> min_fps{10000};
    std::atomic<int> max_fps{0};
    std::atomic<int> avg_fps{0};
    std::atomic<int> fps_updated{0};
    std::atomic<unsigned> interval_frames{0};
    std::atomic<unsigned> interval_ms{0};
    std::atomic<unsigned> elapsed_ms{0};
    std::atomic<unsigned> benchmark_frames{0};
    std::atomic<bool> warmup_done{false};
    std::atomic<bool> finished{false};
    std::atomic<int> score{0};
    std::atomic<int> final_min_fps{0};
    std::atomic<int> final_max_fps{0};
    std::atomic<int> final_avg_fps{0};
};

struct RunControlFlags {
    std::atomic<bool> stop_requested{false};
    std::atomic<bool> test_running{false};
    std::atomic<bool> init_done{false};
    std::atomic<bool> benchmark_done{false};
    std::atomic<bool> render_thread_done{true};
};

extern RunStatsRecord RunStats;
extern RunControlFlags RunControl;

// The display name of the test now running (or last run), for the title, the
// text block and the scores file.
constexpr int kTestNameSize = 64;
extern char current_test_name[kTestNameSize];

// The FPS statistics of one measuring phase: min, max and the truncated mean
// of the per-interval samples.
class FpsAverager {
public:
    void Reset() {
        first_ = true;
        sum_ = 0;
        count_ = 0;
    }
    // Publishes a new sample into the record's min/max/avg.
    void Add(int fps, RunStatsRecord& s);

private:
    bool first_ = true;
    long long sum_ = 0;
    long long count_ = 0;
};
