#include "runner/frame_log.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace {

std::string Number(double v, const char* format) {
    char buf[48];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

std::string Reading(bool has, double v, const char* format) { return has ? Number(v, format) : std::string("n.a."); }

// The value at or below which `share` of the sorted times lie (nearest rank).
double NearestRank(const std::vector<double>& sorted, double share) {
    if (sorted.empty()) return 0.0;
    size_t rank = static_cast<size_t>(std::ceil(share * static_cast<double>(sorted.size())));
    if (rank < 1) rank = 1;
    if (rank > sorted.size()) rank = sorted.size();
    return sorted[rank - 1];
}

}  // namespace

SecondSummary SummariseSecond(unsigned frames, unsigned intervalMs, std::vector<double>* times) {
    SecondSummary s;
    s.frames = frames;
    s.fps = intervalMs > 0 ? frames * 1000.0 / intervalMs : 0.0;
    std::sort(times->begin(), times->end());
    s.p50 = NearestRank(*times, 0.50);
    s.p99 = NearestRank(*times, 0.99);
    return s;
}

FrameLog::~FrameLog() { Close(); }

std::string FrameLog::Header(int gpus) {
    std::string h = "time_s,phase,frames,fps,frame_time_p50_ms,frame_time_p99_ms";
    for (int i = 1; i <= gpus; ++i) {
        const std::string g = "gpu" + std::to_string(i) + "_";
        h += "," + g + "temperature_c," + g + "load_percent," + g + "core_clock_mhz," + g + "memory_clock_mhz," + g +
             "power_percent";
    }
    return h;
}

std::string FrameLog::Row(double seconds, const char* phase, const SecondSummary& s, int gpus,
                          const std::vector<GpuLogReading>& readings) {
    std::string r = Number(seconds, "%.3f") + "," + phase + "," + std::to_string(s.frames) + "," + Number(s.fps, "%.2f") +
                    "," + Number(s.p50, "%.3f") + "," + Number(s.p99, "%.3f");
    for (int i = 0; i < gpus; ++i) {
        // A GPU the monitor could not read this time has no reading at all.
        const GpuLogReading g = i < static_cast<int>(readings.size()) ? readings[static_cast<size_t>(i)] : GpuLogReading();
        r += "," + Reading(g.hasTemperature, g.temperature, "%.1f") + "," + Reading(g.hasLoad, g.load, "%.1f") + "," +
             Reading(g.hasCoreClock, g.coreClock, "%.0f") + "," + Reading(g.hasMemoryClock, g.memoryClock, "%.0f") + "," +
             Reading(g.hasPower, g.power, "%.0f");
    }
    return r;
}

bool FrameLog::Open(const std::string& path, int gpus, std::string* reason) {
    Close();
    gpus_ = gpus < 0 ? 0 : gpus;
    file_ = std::fopen(path.c_str(), "wb");
    if (!file_) {
        *reason = std::strerror(errno);
        return false;
    }
    const std::string h = Header(gpus_) + "\n";
    if (std::fwrite(h.data(), 1, h.size(), file_) != h.size() || std::fflush(file_) != 0) {
        *reason = std::strerror(errno);
        Close();
        return false;
    }
    return true;
}

bool FrameLog::AddRow(double seconds, const char* phase, const SecondSummary& s, const std::vector<GpuLogReading>& gpus,
                      std::string* reason) {
    if (!file_) return false;
    const std::string row = Row(seconds, phase, s, gpus_, gpus) + "\n";
    if (std::fwrite(row.data(), 1, row.size(), file_) != row.size() || std::fflush(file_) != 0) {
        *reason = errno ? std::strerror(errno) : "write failed";
        Close();
        return false;
    }
    return true;
}

void FrameLog::Close() {
    if (file_) std::fclose(file_);
    file_ = nullptr;
}
