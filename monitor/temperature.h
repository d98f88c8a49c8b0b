// Temperature history per GPU, the temperature graph's geometry, and the
// temperature log "./gpu-temperature.xml". All of it runs on the render
// thread of a test; the temperatures come from the sensor snapshot that the
// monitor thread refreshes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace monitor {

class GpuSensorArray;

// The temperature log. The file is created on the first line written, with
// its header; each line is on disk when the call returns; Close() writes the
// closing element. A file that cannot be made or written is reported once
// (event log and exit code) and the lines after it are dropped.
class TemperatureLog {
public:
    static constexpr const char* kDefaultPath = "./gpu-temperature.xml";
    static constexpr const char* kUnknownCard = "Unknown Graphics Card";

    // gpuName: the name of GPU 0 (null or empty: "Unknown Graphics Card");
    // written into the header escaped, so any name keeps the file readable.
    explicit TemperatureLog(const char* gpuName, std::string path = kDefaultPath);
    ~TemperatureLog();
    TemperatureLog(const TemperatureLog&) = delete;
    TemperatureLog& operator=(const TemperatureLog&) = delete;

    // The fur test's line.
    void WriteFurLine(int gpu, float celsius, float seconds);
    // The line of the OpenGL 4 benchmark and the test applications.
    void WriteAppLine(int gpu, float celsius, float seconds, int width, int height, int msaa);
    void Close();
    bool created() const { return created_; }
    const std::string& gpuName() const { return gpuName_; }

    // The texts, for tests and for writers of their own.
    static std::string Header(const std::string& gpuName);
    static std::string FurLine(int gpu, float celsius, float seconds);
    static std::string AppLine(int gpu, float celsius, float seconds, int width, int height, int msaa);
    static float Fahrenheit(float celsius) { return celsius * 1.8f + 32.0f; }
    // Text made safe for an XML attribute value: markup characters become
    // entities, control characters (not allowed in XML even escaped) '?'.
    static std::string EscapeAttribute(const std::string& text);

private:
    void WriteLine(const std::string& text);
    void Fail(const std::string& reason);
    std::string gpuName_;
    bool failed_ = false;
    std::string path_;
    bool created_ = false;
    bool closed_ = false;
    platform::LineFile file_;
};

struct TemperatureSample {
    float celsius;
    float seconds;  // since the test started
};

// Per-GPU histories with their minimum and maximum, sampled once per
// monitor period (the test calls Sample every frame).
class TemperatureHistory {
public:
    // Samples when due: at once on the first call, then only when more than
    // `periodMs` passed since the previous sample. `nowMs` is any
    // millisecond clock that never resets during the test; a sample's time
    // is measured from the test's start on that clock (StartClock, else the
    // first sample), so a benchmark's warm-up end, which resets the run
    // statistics, does not restart it. A GPU whose temperature no interface
    // supplies is not sampled (its history stays empty and it is not
    // logged). A null or empty snapshot does nothing. With a log, each
    // sample is also written (the application line form). True when it
    // sampled.
    bool Sample(const GpuSensorArray* sensors, uint32_t nowMs, uint32_t periodMs, TemperatureLog* log = nullptr,
                int width = 0, int height = 0, int msaa = 0);
    // Marks the test's start on the clock Sample is given.
    void StartClock(uint32_t nowMs) {
        startMs_ = nowMs;
        started_ = true;
    }
    // The GPUs the latest sampling call took a sample of, in index order.
    const std::vector<int>& sampledGpus() const { return sampled_; }

    int gpuCount() const { return static_cast<int>(histories_.size()); }
    const std::vector<TemperatureSample>& history(int gpu) const { return histories_[static_cast<size_t>(gpu)]; }
    float minimum(int gpu) const { return minimum_[static_cast<size_t>(gpu)]; }  // 1000.0 before the first sample
    float maximum(int gpu) const { return maximum_[static_cast<size_t>(gpu)]; }  // 0 before the first sample
    // The highest temperature any GPU reported during the test.
    float highest() const { return highest_; }

private:
    std::vector<std::vector<TemperatureSample>> histories_;
    std::vector<float> minimum_, maximum_;
    float highest_ = 0.0f;
    bool allocated_ = false;
    uint32_t lastSampleMs_ = 0;
    bool started_ = false;
    uint32_t startMs_ = 0;
    std::vector<int> sampled_;
};

// What to draw for one GPU's temperature graph.
struct GraphGeometry {
    bool empty = true;  // no history: nothing at all
    float left = 0, right = 0, bottom = 0, top = 0, spacing = 0;  // centred view coordinates (origin mid-view, y up)
    std::vector<float> xs, ys;                                    // the polyline's points
    bool drawLine = false;                                        // the largest plotted temperature is above 1.0
    float minimumMarkY = 0;
    std::string label;   // "GPU 1: 63°C (min:41°C, max:64°C)", degree sign byte 0xB0
    float labelX = 0;    // pixels from the view's left edge
    float labelY = 0;    // pixels from the view's bottom edge, just above the last point
    float color[4] = {1.0f, 0.7f, 0.2f, 1.0f};
    float labelColor[4] = {1.0f, 1.0f, 1.0f, 1.0f};
};

// One graph per GPU per test object. The point capacity is a setting of the
// test object.
class TemperatureGraph {
public:
    static constexpr float kLowBound = 20.0f;
    static constexpr float kHeightScale = 120.0f;

    explicit TemperatureGraph(int capacity) : capacity_(capacity > 0 ? capacity : 1) {}
    // gpu: 0-based (the label counts from 1); offset: 200 pixels per GPU index.
    GraphGeometry Compute(const std::vector<TemperatureSample>& history, int gpu, float viewWidth, float viewHeight,
                          bool thermometerShown, float offset);
    bool created() const { return created_; }
    float minimum() const { return minimum_; }
    float maximum() const { return maximum_; }
    int capacity() const { return capacity_; }

private:
    int capacity_;
    bool created_ = false;
    float minimum_ = 0.0f;
    float maximum_ = 0.0f;
};

}  // namespace monitor
