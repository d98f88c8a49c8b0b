// The per-second frame log of `/log_frames=`: one CSV row per measuring
// interval of about a second with the frames drawn, the frame rate, the
// median and 99th percentile frame time of that second, and each GPU's
// sensors as the monitor read them. Each row is flushed as it is written,
// so a crash loses at most the second it happened in.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// One GPU's readings for a row. A reading no interface supplies is written
// "n.a.", never 0.
struct GpuLogReading {
    bool hasTemperature = false, hasLoad = false, hasCoreClock = false, hasMemoryClock = false, hasPower = false;
    double temperature = 0, load = 0, coreClock = 0, memoryClock = 0, power = 0;
};

// What one second's frame times come to.
struct SecondSummary {
    unsigned frames = 0;
    double fps = 0.0;   // frames over the interval's true length
    double p50 = 0.0;   // ms; 0 without frame times
    double p99 = 0.0;
};

// The summary of an interval of intervalMs milliseconds in which `frames`
// frames were drawn; `times` (ms, any order) are the frame times seen in it,
// reordered on the way. The percentiles are the nearest-rank ones.
SecondSummary SummariseSecond(unsigned frames, unsigned intervalMs, std::vector<double>* times);

class FrameLog {
public:
    ~FrameLog();
    // Creates (truncates) the file and writes the header for `gpus` GPUs.
    // False, with the reason, when the file cannot be written.
    bool Open(const std::string& path, int gpus, std::string* reason);
    // One row; `seconds` counts from the start of the run, `phase` is
    // "warm-up" or "measured". False, with the reason, when the write failed;
    // later rows are then not attempted.
    bool AddRow(double seconds, const char* phase, const SecondSummary& s, const std::vector<GpuLogReading>& gpus,
                std::string* reason);
    bool open() const { return file_ != nullptr; }
    void Close();

    // The header and a row as text (without the line end), for tests.
    static std::string Header(int gpus);
    static std::string Row(double seconds, const char* phase, const SecondSummary& s, int gpus,
                           const std::vector<GpuLogReading>& readings);

private:
    std::FILE* file_ = nullptr;
    int gpus_ = 0;
};
