#include "runner/run_results.h"

#include <cmath>
#include <cstdio>

RunResults gRunResults;

namespace {

std::string Format(const char* format, double value) {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, value);
    return buf;
}

std::string JsonText(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else if (c >= 0x80) {
                    // Texts come from drivers and settings in the system's
                    // 8-bit code page; Latin-1 is their common ground.
                    out += static_cast<char>(0xC0 | (c >> 6));
                    out += static_cast<char>(0x80 | (c & 0x3F));
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

// Numbers JSON can hold: infinities and NaN become null.
std::string JsonNumber(double v, const char* format = "%.3f") {
    if (!std::isfinite(v)) return "null";
    return Format(format, v);
}

const char* Ending(const RunResults& r) {
    if (!r.started) return "could not start";
    if (r.deviceLost) return "the device was lost";
    if (!r.benchmark) return "stability test";
    return r.finished ? "completed" : "stopped before the end";
}

}  // namespace

std::string SummaryLine(const RunResults& r) {
    char buf[512];
    if (!r.started) {
        std::snprintf(buf, sizeof buf, "Result: %s, %s, %dx%d: could not start (see the event log)", r.testName.c_str(),
                      r.apiName.c_str(), r.width, r.height);
        return buf;
    }
    std::string score;
    if (r.benchmark && r.finished && !r.deviceLost)
        score = "score " + std::to_string(r.score);
    else
        score = std::string("score n.a. (") + Ending(r) + ")";
    // FPS figures exist only once a whole second has been sampled; before
    // that the statistics hold their starting values, which are no measurement.
    std::string fps = r.fpsSeries.empty() ? std::string("n.a. (no whole second measured)")
                                          : std::to_string(r.minFps) + "/" + std::to_string(r.avgFps) + "/" +
                                                std::to_string(r.maxFps);
    std::snprintf(buf, sizeof buf, "Result: %s, %s, %dx%d, %llu frames in %.2f s, FPS min/avg/max %s, %s",
                  r.testName.c_str(), r.apiName.c_str(), r.width, r.height, static_cast<unsigned long long>(r.frames),
                  r.seconds, fps.c_str(), score.c_str());
    std::string line = buf;
    if (r.benchmark && r.finished && !r.deviceLost) {
        // The sub-scores that make the score, as the event log words them.
        std::string parts;
        for (const auto& s : r.subScores) {
            if (s.first.find("_score") == std::string::npos && s.first != "ascore") continue;
            std::snprintf(buf, sizeof buf, "%s%s %.1f", parts.empty() ? "" : ", ", s.first.c_str(), s.second);
            parts += buf;
        }
        if (!parts.empty()) line += " (" + parts + ")";
    }
    return line;
}

std::string ResultsJson(const RunResults& r, const ResultsContext& c) {
    std::string j = "{\n";
    auto field = [&j](const char* name, const std::string& value, bool last = false) {
        j += "  \"";
        j += name;
        j += "\": " + value + (last ? "\n" : ",\n");
    };
    field("program", JsonText("Ardentium"));
    field("version", JsonText(c.programVersion));
    field("test", JsonText(r.testName));
    field("api", JsonText(r.apiName));
    field("run_mode", JsonText(r.benchmark ? "benchmark" : "stability test"));
    field("width", std::to_string(r.width));
    field("height", std::to_string(r.height));
    field("fullscreen", r.fullscreen ? "true" : "false");

    std::string settings = "{";
    for (size_t i = 0; i < c.settings.size(); ++i)
        settings += (i ? ", " : "") + JsonText(c.settings[i].first) + ": " + JsonText(c.settings[i].second);
    field("settings", settings + "}");

    field("renderer", JsonText(r.renderer));
    field("driver", JsonText(r.driver));
    std::string gpus = "[";
    for (size_t i = 0; i < c.gpus.size(); ++i) {
        gpus += std::string(i ? ", " : "") + "{\"name\": " + JsonText(c.gpus[i].name) + ", \"sensors\": {";
        for (size_t k = 0; k < c.gpus[i].sensors.size(); ++k) {
            const SensorRange& s = c.gpus[i].sensors[k];
            gpus += (k ? ", " : "") + JsonText(s.name) + ": {\"min\": " + JsonNumber(s.min, "%.2f") +
                    ", \"max\": " + JsonNumber(s.max, "%.2f") + "}";
        }
        gpus += "}}";
    }
    field("gpus", gpus + "]");

    field("ending", JsonText(Ending(r)));
    field("frames", std::to_string(r.frames));
    field("duration_s", JsonNumber(r.seconds));
    if (r.fpsSeries.empty())
        field("fps", "null");
    else
        field("fps", "{\"min\": " + std::to_string(r.minFps) + ", \"avg\": " + std::to_string(r.avgFps) +
                         ", \"max\": " + std::to_string(r.maxFps) + "}");
    std::string series = "[";
    for (size_t i = 0; i < r.fpsSeries.size(); ++i) series += (i ? ", " : "") + std::to_string(r.fpsSeries[i]);
    field("fps_per_second", series + "]");
    const FrameTimeHistogram& h = r.frameTimes;
    field("frame_time_ms", "{\"p50\": " + JsonNumber(h.Percentile(0.50)) + ", \"p95\": " + JsonNumber(h.Percentile(0.95)) +
                               ", \"p99\": " + JsonNumber(h.Percentile(0.99)) +
                               ", \"p99_9\": " + JsonNumber(h.Percentile(0.999)) + "}");
    field("low_fps", "{\"1_percent\": " + JsonNumber(h.LowFps(0.01), "%.2f") +
                         ", \"0_1_percent\": " + JsonNumber(h.LowFps(0.001), "%.2f") + "}");
    field("score", r.benchmark && r.finished && !r.deviceLost ? std::to_string(r.score) : "null");
    if (r.benchmark && r.finished && !r.deviceLost && !r.subScores.empty()) {
        // JSON has no infinity: a score that is not finite is null.
        std::string sub = "{";
        for (size_t i = 0; i < r.subScores.size(); ++i)
            sub += (i ? ", " : "") + JsonText(r.subScores[i].first) + ": " +
                   (std::isfinite(r.subScores[i].second) ? JsonNumber(r.subScores[i].second, "%.3f") : "null");
        field("sub_scores", sub + "}");
    }
    if (!r.stages.empty()) {
        std::string st = "[";
        for (size_t i = 0; i < r.stages.size(); ++i) {
            const StageResult& x = r.stages[i];
            st += std::string(i ? ", " : "") + "{\"name\": " + JsonText(x.name) +
                  ", \"active\": " + (x.active ? "true" : "false") + ", \"frames\": " + std::to_string(x.frames) +
                  ", \"avg_fps\": " + std::to_string(x.avgFps) + ", \"sim_cloth\": " + std::to_string(x.clothSteps) +
                  ", \"sim_fluid\": " + std::to_string(x.fluidSteps) + ", \"render_thread_cpu_ms_per_frame\": " +
                  (x.renderCpuMsPerFrame >= 0.0 ? JsonNumber(x.renderCpuMsPerFrame, "%.4f") : "null") +
                  ", \"frame_ms\": " + (x.frameMs >= 0.0 ? JsonNumber(x.frameMs, "%.4f") : "null") + "}";
        }
        field("stages", st + "]");
    }
    if (!r.checksActive) {
        field("verification", "null");
    } else {
        std::string v = "{\"checks\": " + std::to_string(r.checks) + ", \"errors\": " + std::to_string(r.checkErrors) +
                        ", \"check_ms\": " + JsonNumber(r.checkMs) +
                        ", \"compute_check\": " + (r.computeChecks ? "true" : "false") + ", \"mismatches\": [";
        for (size_t i = 0; i < r.mismatches.size(); ++i)
            v += std::string(i ? ", " : "") + "{\"frame\": " + std::to_string(r.mismatches[i].frame) +
                 ", \"pixels\": " + std::to_string(r.mismatches[i].pixels) +
                 ", \"largest_difference\": " + std::to_string(r.mismatches[i].largest) +
                 ", \"compute_wrong\": " + std::to_string(r.mismatches[i].computeWrong) + "}";
        field("verification", v + "]}");
    }
    std::string errors = "[";
    for (size_t i = 0; i < c.errors.size(); ++i) errors += (i ? ", " : "") + JsonText(c.errors[i]);
    field("errors", errors + "]", true);
    return j + "}\n";
}
