#include "launcher/launcher_model.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "runner/catalogue.h"
#include "runner/scores_file.h"

namespace {

const char* const kProduct = "Ardentium";

std::string Describe(const char* format) {
    char text[512];
    std::snprintf(text, sizeof text, format, kProduct);
    return text;
}

LauncherTest Render(int test3d, int api3d, const char* description) {
    LauncherTest t;
    t.test3d = test3d;
    t.api3d = api3d;
    DemoChoice choice;
    if (ChooseDemo(test3d, api3d, &choice)) t.name = choice.displayName;
    t.description = Describe(description);
    return t;
}

LauncherTest App(int test3d) {
    LauncherTest t;
    const TestAppInfo* info = FindTestApp(test3d);
    t.test3d = test3d;
    t.name = info ? info->displayName : "";
    t.description = info ? Describe(info->description) : "";
    t.renderThread = false;
    // Each application names its API generation in its identifier.
    t.api3d = test3d >= 2200 ? 4 : test3d >= 2100 ? 3 : 2;
    return t;
}

std::string Escape(const std::string& value) {
    std::string out;
    for (char c : value) {
        if (c == '\n') out += "\\n";
        else if (c == '\r') continue;
        else if (c == '\\') out += "\\\\";
        else out += c;
    }
    return out;
}

std::string JsonText(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string Number(double v, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, v);
    return text;
}

// FPS figures exist once a whole second has been sampled; before that the
// statistics hold their starting values, which are no measurement.
bool FpsKnown(const RunResults& r) { return r.started && !r.fpsSeries.empty(); }

}  // namespace

std::vector<LauncherTestGroup> LauncherCatalogue() {
    std::vector<LauncherTestGroup> g;
    g.push_back({"Fur: the object of your choice", {}});
    const char* furText =
        "%s: the chosen object (logo, torus, box, sphere or graphics card) covered with shells of fur in front of a "
        "lit backdrop, drawn through the API of this entry. A benchmark or a burn-in of the fill rate and texture "
        "units.";
    for (int api : {2, 3, 9, 10, 11}) g.back().tests.push_back(Render(0, api, furText));
    g.back().tests.push_back(Render(0, 4,
                                    "%s: the OpenGL 4 benchmark in its launcher variant: five stages of "
                                    "tessellation, compute and simulation, with one score."));

    g.push_back({"OpenGL 2 and Direct3D (20xx)", {}});
    g.back().tests.push_back(App(2001));
    g.back().tests.push_back(App(2002));
    const char* furryText =
        "%s: the furry logo, the classic fur stress test, drawn through %s. Heats the GPU quickly; a good test of "
        "cooling and power delivery.";
    auto furry = [&](int id, const char* api) {
        char text[512];
        std::snprintf(text, sizeof text, furryText, kProduct, api);
        LauncherTest t = Render(id, 0, "%s");
        t.api3d = ApiIdOf([&] {
            DemoChoice c;
            ChooseDemo(id, 0, &c);
            return c.demoClass;
        }());
        t.description = text;
        return t;
    };
    g.back().tests.push_back(furry(2003, "OpenGL 2"));
    g.back().tests.push_back(furry(2006, "Direct3D 9"));
    g.back().tests.push_back(furry(2010, "Direct3D 10"));
    g.back().tests.push_back(furry(2015, "Direct3D 11"));

    g.push_back({"OpenGL 3 (21xx)", {}});
    g.back().tests.push_back(App(2101));
    g.back().tests.push_back(furry(2102, "OpenGL 3"));

    g.push_back({"OpenGL 4 (22xx)", {}});
    for (int id : {2201, 2202, 2203, 2204}) g.back().tests.push_back(App(id));
    LauncherTest gpu = Render(2205, 4,
                              "%s: the OpenGL 4 benchmark with its cloth and fluid simulation on the GPU (compute "
                              "shaders). Ends with a score.");
    LauncherTest cpu = Render(2206, 4,
                              "%s: the OpenGL 4 benchmark with its cloth and fluid simulation on the CPU threads. "
                              "Ends with a score.");
    g.back().tests.push_back(gpu);
    g.back().tests.push_back(cpu);
    return g;
}

const LauncherTest* FindLauncherTest(const std::vector<LauncherTestGroup>& groups, int test3d, int api3d) {
    for (const LauncherTestGroup& g : groups)
        for (const LauncherTest& t : g.tests)
            if (t.test3d == test3d && (test3d != 0 || t.api3d == api3d)) return &t;
    return nullptr;
}

std::vector<std::pair<int, int>> ResolutionChoices(const std::vector<std::pair<int, int>>& modes, int width,
                                                   int height) {
    std::vector<std::pair<int, int>> out;
    for (const auto& m : modes)
        if (m.first > 0 && m.second > 0 && std::find(out.begin(), out.end(), m) == out.end()) out.push_back(m);
    if (std::find(out.begin(), out.end(), std::make_pair(width, height)) == out.end() && width > 0 && height > 0)
        out.emplace_back(width, height);
    std::sort(out.begin(), out.end(), [](const std::pair<int, int>& a, const std::pair<int, int>& b) {
        return a.first * static_cast<long long>(a.second) != b.first * static_cast<long long>(b.second)
                   ? a.first * static_cast<long long>(a.second) > b.first * static_cast<long long>(b.second)
                   : a.first > b.first;
    });
    return out;
}

std::vector<std::string> SplitCsvLine(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (quoted) {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
                fields.back() += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                fields.back() += c;
            }
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            fields.emplace_back();
        } else if (c != '\r') {
            fields.back() += c;
        }
    }
    return fields;
}

ScoresTable ParseScoresFile(const std::string& text) {
    ScoresTable table;
    size_t at = 0;
    bool first = true;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(at, end - at);
        at = end + 1;
        if (line.empty() || line == "\r") continue;
        std::vector<std::string> fields = SplitCsvLine(line);
        // The header is written only into a new file; a file that lost it
        // still shows its rows.
        if (first && !fields.empty() && fields[0] == "Test name")
            table.header = fields;
        else
            table.rows.push_back(fields);
        first = false;
    }
    std::reverse(table.rows.begin(), table.rows.end());
    return table;
}

std::vector<std::pair<std::string, std::string>> ScoreSheetLines(const ScoreSheet& s) {
    const RunResults& r = s.results;
    std::vector<std::pair<std::string, std::string>> lines;
    lines.emplace_back("Test", r.testName);
    lines.emplace_back("API", r.apiName);
    lines.emplace_back("Resolution", std::to_string(r.width) + "x" + std::to_string(r.height) +
                                         (r.fullscreen ? " fullscreen" : " windowed"));
    lines.emplace_back("Duration", Number(r.seconds, 2) + " s");
    lines.emplace_back("Frames", std::to_string(r.frames));
    const bool scored = r.benchmark && r.finished && !r.deviceLost;
    lines.emplace_back("Score", scored ? std::to_string(r.score) : "n.a.");
    lines.emplace_back("FPS min/avg/max", FpsKnown(r) ? std::to_string(r.minFps) + " / " + std::to_string(r.avgFps) +
                                                            " / " + std::to_string(r.maxFps)
                                                      : "n.a.");
    if (!r.renderer.empty()) lines.emplace_back("Renderer", r.renderer);
    for (size_t i = 0; i < s.context.gpus.size(); ++i) {
        const GpuResult& g = s.context.gpus[i];
        const std::string prefix = "GPU " + std::to_string(i + 1) + " ";
        if (g.sensors.empty()) {
            lines.emplace_back(prefix + (g.name.empty() ? "" : g.name), "no sensor readings");
            continue;
        }
        for (const SensorRange& range : g.sensors)
            lines.emplace_back(prefix + range.name, Number(range.min, 1) + " .. " + Number(range.max, 1));
    }
    return lines;
}

std::string ScoreClipboardText(const ScoreSheet& s) {
    std::string out = SummaryLine(s.results) + "\n";
    for (const auto& line : ScoreSheetLines(s)) out += line.first + ": " + line.second + "\n";
    return out;
}

std::string ScoreCsv(const ScoreSheet& s) {
    const RunResults& r = s.results;
    const bool fps = FpsKnown(r);
    const bool scored = r.benchmark && r.finished && !r.deviceLost;
    std::string header =
        "test,api,width,height,fullscreen,frames,seconds,score,fps_min,fps_avg,fps_max,renderer,driver";
    std::string row = CsvField(r.testName) + "," + CsvField(r.apiName) + "," + std::to_string(r.width) + "," +
                      std::to_string(r.height) + "," + (r.fullscreen ? "1" : "0") + "," + std::to_string(r.frames) +
                      "," + Number(r.seconds, 3) + "," + (scored ? std::to_string(r.score) : "") + "," +
                      (fps ? std::to_string(r.minFps) : "") + "," + (fps ? std::to_string(r.avgFps) : "") + "," +
                      (fps ? std::to_string(r.maxFps) : "") + "," + CsvField(r.renderer) + "," + CsvField(r.driver);
    for (size_t i = 0; i < s.context.gpus.size(); ++i)
        for (const SensorRange& range : s.context.gpus[i].sensors) {
            const std::string name = "gpu" + std::to_string(i + 1) + "_" + range.name;
            header += "," + name + "_min," + name + "_max";
            row += "," + Number(range.min, 2) + "," + Number(range.max, 2);
        }
    return header + "\n" + row + "\n";
}

std::string ScoreSubmission(const ScoreSheet& s, const std::string& userEmail) {
    return "{\"kind\":\"score\",\"user_email\":" + JsonText(userEmail) +
           ",\"result\":" + ResultsJson(s.results, s.context) + "}";
}

std::string StatusPost(const ScoreSheet& s, const std::string& userEmail) {
    return "{\"kind\":\"status\",\"user_email\":" + JsonText(userEmail) +
           ",\"status\":" + JsonText("My GPU ran " + SummaryLine(s.results).substr(8)) + "}";
}

std::string FormatStateDump(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::string out;
    for (const auto& e : entries) out += e.first + "=" + Escape(e.second) + "\n";
    return out;
}

std::string RunFailureText(const std::string& testName, const std::vector<std::string>& linesOfTheTry) {
    // The start-up report and the kill sequence surround the reason; the
    // reason is the line that says something failed or is missing.
    static const char* const kWords[] = {"fail", "could not", "cannot", "unable", "error", "not supported",
                                         "refused", "missing", "too old", "too large"};
    std::vector<std::string> reasons;
    for (const std::string& line : linesOfTheTry) {
        std::string lower = line;
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        for (const char* w : kWords)
            if (lower.find(w) != std::string::npos) {
                reasons.push_back(line);
                break;
            }
    }
    if (reasons.empty()) return testName + " could not start: see ardentium_log.txt for why.";
    if (reasons.size() > 4) reasons.erase(reasons.begin(), reasons.end() - 4);
    std::string text = testName + " could not start:";
    for (const std::string& r : reasons) text += "\n" + r;
    return text + "\n(ardentium_log.txt has every step.)";
}
