#include "app/run_report.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/boxes.h"
#include "core/event_log.h"
#include "core/run_outcome.h"
#include "core/settings.h"
#include "core/shell_state.h"
#include "monitor/monitor_shell.h"
#include "platform/platform.h"
#include "runner/run_facts.h"
#include "runner/run_stats.h"
#include "runner/scores_file.h"

namespace {

// The settings a reader of the results needs to repeat or compare the run.
const char* const kRunShapingSettings[] = {
    "test3d", "api3d", "width", "height", "aa_mode", "fullscreen", "run_mode", "time_based_benchmark",
    "max_time", "max_frames", "xtreme_burn_in", "furry_object", "render_post_fx", "gl3_core_profile",
    "dmsize", "enable_gpu_physx", "fur_custom_diffuse_map", "fur_custom_bkg_map",
};

struct Range {
    bool seen = false;
    double min = 0.0, max = 0.0;
    void Add(double v) {
        if (!seen) min = max = v;
        min = std::min(min, v);
        max = std::max(max, v);
        seen = true;
    }
};

// One GPU's readings over the run. A reading that stayed at 0 the whole
// run is one no interface supplies, and is left out rather than reported
// as a measurement of 0.
struct GpuRanges {
    std::string name;
    Range temperature, load, coreClock, memoryClock, voltage, power, fan;
};

std::mutex gRangesLock;
std::vector<GpuRanges> gRanges;

void SampleSensors() {
    std::lock_guard<std::mutex> hold(gRangesLock);
    int count = monitor::SensorGpuCount();
    if (static_cast<int>(gRanges.size()) < count) gRanges.resize(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        monitor::GpuSensorSnapshot s;
        if (!monitor::ReadGpuSensors(i, &s)) continue;
        GpuRanges& g = gRanges[static_cast<size_t>(i)];
        g.name = s.name;
        // The temperature and the load say whether an interface supplied
        // them: only those are ranges, and a supplied 0 is a measurement.
        if (s.has_temperature) g.temperature.Add(s.temperature);
        if (s.has_load) g.load.Add(s.load);
        g.coreClock.Add(s.shown_core_clock());
        g.memoryClock.Add(s.shown_memory_clock());
        g.voltage.Add(s.shown_voltage());
        g.power.Add(s.power_percent);
        if (s.fan_value > 0 || g.fan.seen) g.fan.Add(s.fan_value);
    }
}

void AddRange(std::vector<SensorRange>* out, const char* name, const Range& r, bool zeroIsMeasured = false) {
    if (!r.seen || (!zeroIsMeasured && r.min == 0.0 && r.max == 0.0)) return;
    out->push_back(SensorRange{name, r.min, r.max});
}

void WriteResultsJson(const RunResults& results) {
    const std::string& path = gRunExtras.resultsJsonPath;
    if (path.empty()) return;
    // The errors of this very write cannot be in the file; everything
    // before it is.
    std::string reason;
    if (!platform::WriteFileReplacing(path, ResultsJson(results, CollectResultsContext()), &reason))
        NoteResultNotWritten("the results file", path, reason);
}

}  // namespace

void BeginRunReport() {
    {
        std::lock_guard<std::mutex> hold(gRangesLock);
        gRanges.clear();
    }
    monitor::SetMonitorTickCallback(SampleSensors);
}

ResultsContext CollectResultsContext() {
    ResultsContext c;
    char version[32];
    std::snprintf(version, sizeof version, "%d.%d.%d", kVersionMajor, kVersionMinor, kVersionPatch);
    c.programVersion = version;

    const std::string all = FormatSettings(StartupOptions);
    size_t at = 0;
    while (at < all.size()) {
        size_t end = all.find('\n', at);
        if (end == std::string::npos) end = all.size();
        std::string line = all.substr(at, end - at);
        at = end + 1;
        size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        std::string name = line.substr(0, eq);
        for (const char* wanted : kRunShapingSettings)
            if (name == wanted) c.settings.emplace_back(name, line.substr(eq + 1));
    }

    SampleSensors();  // the last readings, in case the run was shorter than a monitor period
    {
        std::lock_guard<std::mutex> hold(gRangesLock);
        for (const GpuRanges& g : gRanges) {
            GpuResult r;
            r.name = g.name;
            AddRange(&r.sensors, "temperature_c", g.temperature, true);
            AddRange(&r.sensors, "load_percent", g.load, true);
            AddRange(&r.sensors, "core_clock_mhz", g.coreClock);
            AddRange(&r.sensors, "memory_clock_mhz", g.memoryClock);
            AddRange(&r.sensors, "core_voltage_v", g.voltage);
            AddRange(&r.sensors, "power_percent", g.power);
            AddRange(&r.sensors, "fan", g.fan);
            c.gpus.push_back(r);
        }
    }
    c.errors = NotedErrors();
    return c;
}

int ReadGpuLogReadings(std::vector<GpuLogReading>* out) {
    out->clear();
    const int count = monitor::SensorGpuCount();
    for (int i = 0; i < count; ++i) {
        GpuLogReading g;
        monitor::GpuSensorSnapshot s;
        if (monitor::ReadGpuSensors(i, &s)) {
            // Only what an interface supplied: the temperature and load carry
            // their own flag; a clock or power figure of 0 is one nobody read.
            g.hasTemperature = s.has_temperature;
            g.temperature = s.temperature;
            g.hasLoad = s.has_load;
            g.load = s.load;
            g.coreClock = s.shown_core_clock();
            g.hasCoreClock = g.coreClock > 0;
            g.memoryClock = s.shown_memory_clock();
            g.hasMemoryClock = g.memoryClock > 0;
            g.hasPower = s.power_available != 0;
            g.power = s.power_percent;
        }
        out->push_back(g);
    }
    return count;
}

void ReportRunEnded(const RunResults& results) {
    if (results.checkErrors > 0)
        NoteVerificationErrors("Verification: " + std::to_string(results.checkErrors) + " of " +
                               std::to_string(results.checks) + " picture checks differed from the reference");
    if (!results.started)
        NoteCouldNotStart(results.testName + " could not start");
    else if (results.deviceLost)
        NoteRunFailed(results.testName + ": the graphics device was lost");
    else if (results.benchmark && !results.finished)
        NoteStoppedEarly();
    platform::WriteConsole(SummaryLine(results) + "\n");
    WriteResultsJson(results);
}

void WriteScoresRow() {
    ScoreRow row;
    row.testName = current_test_name;
    // What the run drew with; the monitor's start-up texts when the run
    // could not say.
    row.renderer = gRunResults.renderer.empty() ? monitor::RendererText() : gRunResults.renderer;
    row.driver = gRunResults.driver.empty() ? monitor::DriverText() : gRunResults.driver;
    row.gpuClockMhz = monitor::ScoreGpuClockMHz();
    row.memoryClockMhz = monitor::ScoreMemoryClockMHz();
    row.msaaSamples = RunFacts.msaaSamples;
    row.width = RunFacts.clientWidth;
    row.height = RunFacts.clientHeight;
    row.fullscreen = RunParameters.fullscreen == 1;
    row.timeBased = RunParameters.time_based == 1;
    row.maxTime = static_cast<int>(RunParameters.max_time);
    row.score = RunStats.score;
    row.tempStart = RunFacts.tempStart;
    row.tempEnd = RunFacts.tempEnd;
    row.tempMax = RunFacts.tempMax;
    row.avgFps = RunStats.avg_fps;
    row.minFps = RunStats.min_fps;
    row.maxFps = RunStats.max_fps;
    std::string reason;
    if (!AppendScoreRow(kScoresFileName, row, &reason)) NoteResultNotWritten("the scores file", kScoresFileName, reason);
}
