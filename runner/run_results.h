// What a run measured, for the user: the summary line on standard output at
// the end of every run and the JSON results file. Filled by the render
// thread; read by others only once it has ended.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "runner/frame_times.h"

// One stage of a benchmark that runs in stages: what it counted, and what
// its frames cost the render thread.
struct StageResult {
    std::string name;
    bool active = true;
    int frames = 0, avgFps = 0;
    int clothSteps = 0, fluidSteps = 0;
    double renderCpuMsPerFrame = -1.0;  // the render thread's processor time per frame handed over
    double frameMs = -1.0;              // wall time per frame handed over
};

struct RunResults {
    std::string testName;  // the catalogue's display name
    std::string apiName;   // "OpenGL 2" ... "Direct3D 11"
    int width = 0, height = 0;
    bool fullscreen = false;
    bool benchmark = true;
    bool timeBased = true;
    unsigned maxTime = 0, maxFrames = 0;

    bool started = false;     // Init succeeded
    bool finished = false;    // a benchmark reached its end by itself
    bool deviceLost = false;
    std::string renderer, driver;

    // The measured phase: after the warm-up in a benchmark, all of a stability test.
    uint64_t frames = 0;        // frames drawn (their fences signalled)
    double seconds = 0.0;       // length of the measured phase
    int minFps = 0, avgFps = 0, maxFps = 0;
    int score = 0;              // a finished benchmark's score
    // A finished benchmark's sub-scores and rates by name (the OpenGL 4
    // benchmark's GraphX, PhysX, Combined and AScore); empty for the others.
    std::vector<std::pair<std::string, double>> subScores;
    std::vector<StageResult> stages;
    std::vector<int> fpsSeries; // one sample per measuring interval of about a second
    // The picture checks: whether the run had a reference to check against,
    // how many checks ran, how many failed, and the failed ones (the first
    // hundred).
    bool checksActive = false;
    unsigned checks = 0, checkErrors = 0;
    double checkMs = 0.0;  // wall time the checks took, the reference included
    bool computeChecks = false;  // a compute check ran with each picture check
    struct Mismatch {
        uint64_t frame = 0, pixels = 0;
        int largest = 0;
        int computeWrong = 0;
    };
    std::vector<Mismatch> mismatches;
    FrameTimeHistogram frameTimes;
};

// The current (or last) run's results.
extern RunResults gRunResults;

// Everything else the JSON results hold that the runner does not know.
struct SensorRange {
    std::string name;  // "temperature_c", "load_percent", ...
    double min = 0.0, max = 0.0;
};
struct GpuResult {
    std::string name;
    std::vector<SensorRange> sensors;  // only readings some interface supplied
};
struct ResultsContext {
    std::string programVersion;
    std::vector<std::pair<std::string, std::string>> settings;  // name, value as text
    std::vector<GpuResult> gpus;
    std::vector<std::string> errors;
};

// "Result: Furry VXA GL2, OpenGL 2, 640x360, 1204 frames in 5.00 s, FPS min/avg/max 228/240/251, score 1204"
std::string SummaryLine(const RunResults& r);
// The JSON results document (see the README for its fields).
std::string ResultsJson(const RunResults& r, const ResultsContext& context);
