#include "launcher/launcher.h"

#include <imgui.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

#include "core/boxes.h"
#include "core/event_log.h"
#include "core/settings.h"
#include "core/shell_state.h"
#include "launcher/launcher_model.h"
#include "launcher/submit.h"
#include "monitor/monitor_shell.h"
#include "platform/gui_window.h"
#include "platform/platform.h"
#include "render/font.h"
#include "render/image_write.h"
#include "runner/run3d.h"
#include "runner/scores_file.h"

namespace {

// Boxes raised while the launcher is up (by this thread or the render
// thread) wait here until the launcher shows them.
std::mutex gBoxLock;
std::vector<std::string> gBoxTexts;

void CollectBox(bool error, const char* text) {
    std::lock_guard<std::mutex> hold(gBoxLock);
    gBoxTexts.emplace_back(text ? text : "");
}

std::vector<std::string> TakeBoxes() {
    std::lock_guard<std::mutex> hold(gBoxLock);
    std::vector<std::string> out;
    out.swap(gBoxTexts);
    return out;
}

enum class Tab { Tests, Settings, Gpu, Scores, About };
const char* const kTabNames[] = {"tests", "settings", "gpu", "scores", "about"};

const char* const kAaModes[] = {"Off", "2X MSAA", "4X MSAA", "8X MSAA"};
const int kApis[] = {2, 3, 4, 9, 10, 11};

const char* ApiName(int api) {
    switch (api) {
        case 2: return "OpenGL 2";
        case 3: return "OpenGL 3";
        case 4: return "OpenGL 4";
        case 9: return "Direct3D 9";
        case 10: return "Direct3D 10";
        case 11: return "Direct3D 11";
        default: return "OpenGL 2";
    }
}

const char* const kFurryNames[] = {"VXA logo", "Torus", "Box", "Sphere", "HD6970 card"};

std::string ReadWholeFile(const std::string& path, bool* ok) {
    std::ifstream f(path, std::ios::binary);
    *ok = static_cast<bool>(f);
    if (!f) return std::string();
    return std::string((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

class Launcher {
public:
    Launcher(const LauncherHooks& hooks, platform::GuiWindow* window) : hooks_(hooks), window_(window) {
        groups_ = LauncherCatalogue();
        // The command line's test wins over the one the launcher remembered.
        int test = StartupOptions.test3d != 0 ? StartupOptions.test3d : StartupOptions.launcher_test3d;
        if (!FindLauncherTest(groups_, test, StartupOptions.api3d)) test = 2003;
        selectedTest_ = test;
        selectedApi_ = FindLauncherTest(groups_, test, StartupOptions.api3d)->api3d;
        StartupOptions.api3d = selectedApi_;
        platform::DisplayMode mode;
        for (int i = 0; platform::EnumDisplayMode(i, &mode); ++i) modes_.emplace_back(mode.width, mode.height);
        CopyText(emailBuffer_, sizeof emailBuffer_, StartupOptions.submit_score_user_email.c_str());
        CopyText(urlBuffer_, sizeof urlBuffer_, StartupOptions.score_submit_url.c_str());
        CopyText(scoreFileBase_, sizeof scoreFileBase_, "Ardentium_Score");
        LoadScores();
    }

    // One frame of the launcher; false once the user closed it.
    bool Frame(bool windowOpen) {
        for (std::string& text : TakeBoxes()) ShowError(text);
        SampleSensors();
        rects_.clear();

        ImGuiIO& io = ImGui::GetIO();
        ImGui::SetNextWindowPos(ImVec2(0, 0));
        ImGui::SetNextWindowSize(io.DisplaySize);
        ImGui::Begin("launcher", nullptr,
                     ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove |
                         ImGuiWindowFlags_NoCollapse | ImGuiWindowFlags_NoSavedSettings |
                         ImGuiWindowFlags_NoBringToFrontOnFocus);
        ImGui::Text("%s %d.%d.%d", kProductTitle, kVersionMajor, kVersionMinor, kVersionPatch);
        ImGui::SameLine();
        ImGui::TextDisabled("  %s", adapter_.c_str());

        const float footer = ImGui::GetFrameHeightWithSpacing() * 2.6f;
        ImGui::BeginChild("tabs", ImVec2(0, -footer), false);
        if (ImGui::BeginTabBar("main")) {
            TabItem(Tab::Tests, "Tests", [this] { TestsTab(); });
            TabItem(Tab::Settings, "Settings", [this] { SettingsTab(); });
            TabItem(Tab::Gpu, "GPU", [this] { GpuTab(); });
            TabItem(Tab::Scores, "Scores", [this] { ScoresTab(); });
            TabItem(Tab::About, "About", [this] { AboutTab(); });
            ImGui::EndTabBar();
        }
        ImGui::EndChild();
        Footer();
        ScoreDialog();
        ErrorPopup();
        ImGui::End();
        return windowOpen && !quit_;
    }

    void WriteState(const std::string& path) {
        if (path.empty()) return;
        const std::string text = FormatStateDump(StateEntries());
        if (text == lastState_) return;
        std::string reason;
        if (platform::WriteFileReplacing(path, text, &reason))
            lastState_ = text;
        else if (!stateFailureLogged_) {
            gEventLog.Write("Launcher: unable to write its state to [%s]: %s.", path.c_str(), reason.c_str());
            stateFailureLogged_ = true;
        }
    }

    // A test or a user asks for a picture of the launcher by naming a PNG
    // file in "<state file>.shot"; the next frame drawn is saved there and
    // the request removed. Called after each frame.
    void ServeScreenshotRequest(const std::string& statePath) {
        if (statePath.empty()) return;
        const std::string request = statePath + ".shot";
        std::string rgba;
        int w = 0, h = 0;
        if (!shotTarget_.empty() && window_->TakeCapturedFrame(&rgba, &w, &h)) {
            if (!WritePng(shotTarget_, rgba, w, h))
                gEventLog.Write("Launcher screenshot: unable to write [%s].", shotTarget_.c_str());
            else
                gEventLog.Write("Launcher screenshot saved to [%s] (%dx%d).", shotTarget_.c_str(), w, h);
            shotTarget_.clear();
            std::remove(request.c_str());
            return;
        }
        if (!shotTarget_.empty()) return;
        bool ok = false;
        std::string target = ReadWholeFile(request, &ok);
        if (!ok) return;
        while (!target.empty() && (target.back() == '\n' || target.back() == '\r')) target.pop_back();
        if (target.empty()) return;  // still being written
        shotTarget_ = target;
        window_->CaptureNextFrame();
    }

    void SetAdapter(const std::string& text) { adapter_ = text; }

private:
    template <typename F>
    void TabItem(Tab tab, const char* label, F body) {
        const bool open = ImGui::BeginTabItem(label);
        Track(std::string("tab.") + kTabNames[static_cast<int>(tab)]);
        if (!open) return;
        tab_ = tab;
        body();
        ImGui::EndTabItem();
    }

    // Remembers where the last widget is, for the state dump.
    void Track(const std::string& id) {
        const ImVec2 a = ImGui::GetItemRectMin();
        const ImVec2 b = ImGui::GetItemRectMax();
        char text[64];
        std::snprintf(text, sizeof text, "%d,%d,%d,%d", static_cast<int>(a.x), static_cast<int>(a.y),
                      static_cast<int>(b.x - a.x), static_cast<int>(b.y - a.y));
        rects_.emplace_back("widget." + id, text);
    }

    const LauncherTest* Selected() const { return FindLauncherTest(groups_, selectedTest_, selectedApi_); }

    bool Available(const LauncherTest& t) const { return hooks_.available(t.test3d, t.api3d); }

    void Select(const LauncherTest& t) {
        selectedTest_ = t.test3d;
        selectedApi_ = t.api3d;
        // The API goes with the test, and the settings file keeps both.
        StartupOptions.api3d = t.api3d;
        StartupOptions.launcher_test3d = t.test3d;
    }

    void TestsTab() {
        ImGui::BeginChild("list", ImVec2(ImGui::GetContentRegionAvail().x * 0.45f, 0), true);
        for (const LauncherTestGroup& g : groups_) {
            ImGui::TextDisabled("%s", g.title.c_str());
            for (const LauncherTest& t : g.tests) {
                const bool selected = t.test3d == selectedTest_ && (t.test3d != 0 || t.api3d == selectedApi_);
                std::string label = t.name;
                if (!Available(t)) label += "  (not in this build)";
                label += "##" + std::to_string(t.test3d) + "." + std::to_string(t.api3d);
                if (ImGui::Selectable(label.c_str(), selected, ImGuiSelectableFlags_AllowDoubleClick)) {
                    Select(t);
                    if (ImGui::IsMouseDoubleClicked(0) && Available(t)) startWanted_ = true;
                }
                Track("test." + std::to_string(t.test3d) + (t.test3d == 0 ? "." + std::to_string(t.api3d) : ""));
            }
            ImGui::Spacing();
        }
        ImGui::EndChild();
        ImGui::SameLine();
        ImGui::BeginChild("detail", ImVec2(0, 0), false);
        if (const LauncherTest* t = Selected()) {
            ImGui::Text("%s", t->name.c_str());
            ImGui::Separator();
            ImGui::TextWrapped("%s", t->description.c_str());
            ImGui::Spacing();
            ImGui::Text("API: %s", ApiName(t->api3d));
            if (!Available(*t)) ImGui::TextColored(ImVec4(1, 0.6f, 0.3f, 1), "This build cannot run this test.");
            if (t->test3d == 0 && t->api3d != 4) {
                int object = StartupOptions.furry_object - 1;
                if (object < 0 || object > 4) object = 0;
                if (ImGui::Combo("Object", &object, kFurryNames, 5)) StartupOptions.furry_object = object + 1;
                Track("furry_object");
            }
            if (t->test3d == 2205 || t->test3d == 2206 || (t->test3d == 0 && t->api3d == 4)) {
                // The benchmark's presets; any other number is its demo mode.
                static const char* const kPresets[] = {"1: entry", "2: normal", "3: extreme",
                                                       "4: competition", "5: competition", "demo mode"};
                int preset = StartupOptions.amark_preset >= 1 && StartupOptions.amark_preset <= 5
                                 ? StartupOptions.amark_preset - 1
                                 : 5;
                if (ImGui::Combo("Preset", &preset, kPresets, 6)) StartupOptions.amark_preset = preset < 5 ? preset + 1 : 0;
                Track("amark_preset");
            }
            if (t->renderThread && t->api3d != 4) {
                ImGui::Spacing();
                ImGui::TextDisabled("Custom images (256 to 1024 pixels a side; empty: the built-in ones)");
                ImGui::InputText("Fur image", StartupOptions.fur_custom_diffuse_map,
                                 sizeof StartupOptions.fur_custom_diffuse_map);
                Track("fur_custom_diffuse_map");
                ImGui::InputText("Background image", StartupOptions.fur_custom_bkg_map,
                                 sizeof StartupOptions.fur_custom_bkg_map);
                Track("fur_custom_bkg_map");
            }
        }
        ImGui::EndChild();
    }

    void SettingsTab() {
        StartupOptionsRecord& o = StartupOptions;
        const LauncherTest* t = Selected();
        ImGui::BeginChild("settings", ImVec2(0, 0), false);
        ImGui::PushItemWidth(ImGui::GetFontSize() * 18);
        // The API: test 0 runs the fur object through the API chosen here;
        // every other test names its own.
        int apiIndex = 0;
        for (int i = 0; i < 6; ++i)
            if (kApis[i] == o.api3d) apiIndex = i;
        const char* apiNames[6];
        for (int i = 0; i < 6; ++i) apiNames[i] = ApiName(kApis[i]);
        ImGui::BeginDisabled(t && t->test3d != 0);
        if (ImGui::Combo("API", &apiIndex, apiNames, 6)) {
            o.api3d = kApis[apiIndex];
            if (selectedTest_ == 0) selectedApi_ = o.api3d;
        }
        Track("api3d");
        ImGui::EndDisabled();
        if (t && t->test3d != 0) {
            ImGui::SameLine();
            ImGui::TextDisabled("(the test %s uses %s)", t->name.c_str(), ApiName(t->api3d));
        }

        std::vector<std::pair<int, int>> sizes = ResolutionChoices(modes_, o.width, o.height);
        std::string current = std::to_string(o.width) + "x" + std::to_string(o.height);
        if (ImGui::BeginCombo("Resolution", current.c_str())) {
            for (const auto& s : sizes) {
                std::string label = std::to_string(s.first) + "x" + std::to_string(s.second);
                if (ImGui::Selectable(label.c_str(), s.first == o.width && s.second == o.height)) {
                    o.width = s.first;
                    o.height = s.second;
                }
            }
            ImGui::EndCombo();
        }
        Track("resolution");
        ImGui::SetNextItemWidth(ImGui::GetFontSize() * 7);
        if (ImGui::InputInt("Width", &o.width, 0)) o.width = std::max(1, std::min(o.width, 16384));
        Track("width");
        ImGui::SameLine();
        ImGui::SetNextItemWidth(ImGui::GetFontSize() * 7);
        if (ImGui::InputInt("Height", &o.height, 0)) o.height = std::max(1, std::min(o.height, 16384));
        Track("height");
        bool fullscreen = o.fullscreen != 0;
        if (ImGui::Checkbox("Fullscreen", &fullscreen)) o.fullscreen = fullscreen ? 1 : 0;
        Track("fullscreen");

        int aa = 0;
        for (int i = 0; i < 4; ++i)
            if (std::strcmp(o.aa_mode, kAaModes[i]) == 0) aa = i;
        if (ImGui::Combo("Anti-aliasing", &aa, kAaModes, 4)) CopyText(o.aa_mode, sizeof o.aa_mode, kAaModes[aa]);
        Track("aa_mode");

        ImGui::Separator();
        if (ImGui::RadioButton("Benchmark", o.run_mode == 1)) o.run_mode = 1;
        Track("run_mode.benchmark");
        ImGui::SameLine();
        if (ImGui::RadioButton("Stability test (burn-in)", o.run_mode == 2)) o.run_mode = 2;
        Track("run_mode.stability");
        if (ImGui::RadioButton("Time limit", o.time_based_benchmark)) o.time_based_benchmark = true;
        Track("limit.time");
        ImGui::SameLine();
        if (ImGui::RadioButton("Frame limit", !o.time_based_benchmark)) o.time_based_benchmark = false;
        Track("limit.frames");
        int maxTime = static_cast<int>(o.max_time);
        ImGui::SetNextItemWidth(ImGui::GetFontSize() * 9);
        if (ImGui::InputInt("Time limit (ms)", &maxTime, 1000)) o.max_time = static_cast<uint32_t>(std::max(0, maxTime));
        Track("max_time");
        ImGui::SameLine();
        int maxFrames = static_cast<int>(o.max_frames);
        ImGui::SetNextItemWidth(ImGui::GetFontSize() * 9);
        if (ImGui::InputInt("Frame limit", &maxFrames, 100)) o.max_frames = static_cast<uint32_t>(std::max(0, maxFrames));
        Track("max_frames");
        ImGui::Checkbox("Xtreme burn-in", &o.xtreme_burn_in);
        Track("xtreme_burn_in");
        ImGui::SameLine();
        ImGui::SetNextItemWidth(ImGui::GetFontSize() * 7);
        if (ImGui::InputInt("Tone-down delay (ms)", &o.tone_down_delay_ms, 10))
            o.tone_down_delay_ms = std::max(0, o.tone_down_delay_ms);
        Track("tone_down_delay_ms");

        ImGui::Separator();
        ImGui::TextDisabled("On screen");
        ImGui::Checkbox("Post-processing (radial blur)", &o.render_post_fx);
        Track("render_post_fx");
        ImGui::Checkbox("FPS, time and score texts", &o.render_general_indicators);
        ImGui::SameLine();
        ImGui::Checkbox("GPU monitor", &o.render_gpu_monitor);
        ImGui::SameLine();
        ImGui::Checkbox("Temperature graph", &o.render_temp_graphs);
        ImGui::Checkbox("Maker logo", &o.render_vxa_logo);
        ImGui::SameLine();
        ImGui::Checkbox("Product logo", &o.render_a_logo);
        bool score = o.display_score != 0;
        ImGui::SameLine();
        if (ImGui::Checkbox("Score dialog after a benchmark", &score)) o.display_score = score ? 1 : 0;
        Track("display_score");

        ImGui::Separator();
        ImGui::TextDisabled("Logs, music, simulation");
        ImGui::Checkbox("Log temperatures (gpu-temperature.xml)", &o.log_temperature);
        ImGui::SameLine();
        ImGui::Checkbox("Log scores (Ardentium_Scores.csv)", &o.log_score);
        Track("log_score");
        ImGui::Checkbox("Benchmark music", &o.enable_amark_music);
        ImGui::SameLine();
        ImGui::Checkbox("GPU simulation (compute shaders)", &o.enable_gpu_physx);

        ImGui::Separator();
        ImGui::TextDisabled("Score submission");
        if (ImGui::InputText("Your e-mail", emailBuffer_, sizeof emailBuffer_))
            o.submit_score_user_email = emailBuffer_;
        Track("submit_score_user_email");
        if (ImGui::InputText("Submission address (http://...)", urlBuffer_, sizeof urlBuffer_))
            o.score_submit_url = urlBuffer_;
        Track("score_submit_url");
        ImGui::PopItemWidth();
        ImGui::EndChild();
    }

    struct History {
        std::deque<float> values;
    };

    void SampleSensors() {
        const uint32_t now = platform::TickCountMs();
        if (sampledOnce_ && now - lastSample_ < 1000) return;
        sampledOnce_ = true;
        lastSample_ = now;
        const int count = monitor::SensorGpuCount();
        if (static_cast<int>(history_.size()) < count) history_.resize(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            monitor::GpuSensorSnapshot s;
            if (!monitor::ReadGpuSensors(i, &s)) continue;
            // A GPU without a temperature reading has no history: a line at
            // 0 would read as a measurement.
            if (s.temperature == 0.0f) continue;
            std::deque<float>& h = history_[static_cast<size_t>(i)].values;
            h.push_back(s.temperature);
            if (h.size() > 120) h.pop_front();
        }
    }

    static std::string Reading(float value, const char* unit, int decimals = 0) {
        if (value == 0.0f) return "n.a.";
        char text[48];
        std::snprintf(text, sizeof text, "%.*f %s", decimals, value, unit);
        return text;
    }

    void GpuTab() {
        ImGui::Text("Adapter: %s", monitor::AdapterText().c_str());
        ImGui::Text("Renderer: %s", monitor::RendererText().c_str());
        ImGui::Text("Driver: %s", monitor::DriverText().c_str());
        const int count = monitor::SensorGpuCount();
        ImGui::Text("GPUs with a sensor record: %d (refreshed every %u ms by the monitor thread)", count,
                    monitor::MonitorPeriodMs());
        for (int i = 0; i < count; ++i) {
            monitor::GpuSensorSnapshot s;
            if (!monitor::ReadGpuSensors(i, &s)) continue;
            ImGui::Separator();
            ImGui::Text("GPU %d: %s", i + 1, s.name.empty() ? "(no name)" : s.name.c_str());
            if (ImGui::BeginTable(("sensors" + std::to_string(i)).c_str(), 4, ImGuiTableFlags_SizingStretchSame)) {
                auto cell = [](const char* label, const std::string& value) {
                    ImGui::TableNextColumn();
                    ImGui::TextDisabled("%s", label);
                    ImGui::TableNextColumn();
                    ImGui::Text("%s", value.c_str());
                };
                cell("Temperature", Reading(s.temperature, "C"));
                cell("Load", Reading(s.load, "%"));
                cell("Core clock", Reading(s.shown_core_clock(), "MHz"));
                cell("Memory clock", Reading(s.shown_memory_clock(), "MHz"));
                cell("Core voltage", Reading(s.shown_voltage(), "V", 3));
                cell("Fan", s.fan_value > 0 ? std::to_string(s.fan_value) + (s.fan_is_rpm ? " RPM" : " %") : "n.a.");
                cell("Power", Reading(static_cast<float>(s.power_percent), "%"));
                cell("Memory used", s.memory_total_mb > 0 ? std::to_string(s.memory_used_mb) + " of " +
                                                               std::to_string(s.memory_total_mb) + " MB"
                                                         : "n.a.");
                ImGui::EndTable();
            }
            if (static_cast<size_t>(i) < history_.size() && !history_[static_cast<size_t>(i)].values.empty()) {
                const std::deque<float>& h = history_[static_cast<size_t>(i)].values;
                std::vector<float> v(h.begin(), h.end());
                char overlay[64];
                std::snprintf(overlay, sizeof overlay, "temperature (0 to 110 C), last %zu s", v.size());
                ImGui::PlotLines("##temp", v.data(), static_cast<int>(v.size()), 0, overlay, 0.0f, 110.0f,
                                 ImVec2(std::max(100.0f, ImGui::GetContentRegionAvail().x), ImGui::GetFontSize() * 5));
                Track("gpu.graph." + std::to_string(i));
            } else {
                ImGui::TextDisabled("Temperature history: n.a. (no temperature reading)");
            }
        }
        if (count == 0) ImGui::TextDisabled("No sensor readings on this machine.");
    }

    void LoadScores() {
        bool ok = false;
        std::string text = ReadWholeFile(kScoresFileName, &ok);
        scores_ = ok ? ParseScoresFile(text) : ScoresTable();
        scoresFound_ = ok;
    }

    void ScoresTab() {
        if (ImGui::Button("Reload")) LoadScores();
        Track("scores.reload");
        ImGui::SameLine();
        ImGui::TextDisabled("%s: %zu rows, newest first (a row is added at exit when scores are logged)",
                            kScoresFileName, scores_.rows.size());
        if (!scoresFound_) {
            ImGui::Text("No scores file yet.");
            return;
        }
        // The columns a reader compares runs by.
        const int shown[] = {0, 6, 7, 10, 11, 15, 16, 17, 1};
        const char* titles[] = {"Test", "Width", "Height", "Max time", "Frames", "Avg FPS", "Min FPS", "Max FPS",
                                "Renderer"};
        if (ImGui::BeginTable("scores", 9,
                              ImGuiTableFlags_Borders | ImGuiTableFlags_RowBg | ImGuiTableFlags_ScrollY |
                                  ImGuiTableFlags_Resizable)) {
            ImGui::TableSetupScrollFreeze(0, 1);
            for (const char* t : titles) ImGui::TableSetupColumn(t);
            ImGui::TableHeadersRow();
            for (const auto& row : scores_.rows) {
                ImGui::TableNextRow();
                for (int c : shown) {
                    ImGui::TableNextColumn();
                    ImGui::TextUnformatted(static_cast<size_t>(c) < row.size() ? row[static_cast<size_t>(c)].c_str()
                                                                               : "");
                }
            }
            ImGui::EndTable();
        }
    }

    void AboutTab() {
        ImGui::Text("%s %d.%d.%d", kProductTitle, kVersionMajor, kVersionMinor, kVersionPatch);
        ImGui::Text("Build: %s %s", __DATE__, __TIME__);
        ImGui::TextWrapped(
            "A GPU stress test and benchmark: demanding real-time 3D scenes drawn as fast as the card allows, with "
            "the card's sensors read all along, temperature logs, FPS statistics and scores.");
        ImGui::Spacing();
        ImGui::TextWrapped("Settings file: %s", gShell.settingsFilePath.c_str());
        ImGui::TextWrapped("Event log: ardentium_log.txt, in the folder the program was started from.");
        ImGui::TextWrapped("Scores: %s; results of a run as JSON with /results_json=PATH.", kScoresFileName);
        ImGui::Spacing();
        ImGui::Text("Built with Dear ImGui %s, SDL2 or Win32, OpenGL and Direct3D.", ImGui::GetVersion());
        ImGui::TextDisabled("Keys: Tab moves between fields, Enter or Space activates, Escape closes a dialog.");
    }

    void Footer() {
        ImGui::Separator();
        const LauncherTest* t = Selected();
        const bool can = t && Available(*t);
        ImGui::BeginDisabled(!can);
        const bool pressed = ImGui::Button("Start", ImVec2(ImGui::GetFontSize() * 8, 0));
        Track("start");
        ImGui::EndDisabled();
        ImGui::SameLine();
        if (t) {
            const char* limit = StartupOptions.time_based_benchmark ? "ms" : "frames";
            ImGui::Text("%s, %s, %dx%d%s, %s %u %s", t->name.c_str(), ApiName(t->api3d), StartupOptions.width,
                        StartupOptions.height, StartupOptions.fullscreen ? " fullscreen" : "",
                        StartupOptions.run_mode == 1 ? "benchmark" : "stability test",
                        StartupOptions.time_based_benchmark ? StartupOptions.max_time : StartupOptions.max_frames,
                        limit);
        }
        const ImGuiStyle& style = ImGui::GetStyle();
        const float quitWidth = ImGui::CalcTextSize("Quit").x + style.FramePadding.x * 2;
        ImGui::SameLine(std::max(ImGui::GetCursorPosX() + style.ItemSpacing.x,
                                 ImGui::GetWindowWidth() - quitWidth - style.WindowPadding.x));
        if (ImGui::Button("Quit")) quit_ = true;
        Track("quit");
        if (!errorText_.empty())
            ImGui::TextColored(ImVec4(1.0f, 0.45f, 0.4f, 1.0f), "%s", StatusLineOf(errorText_).c_str());
        else if (runs_ > 0)
            ImGui::TextDisabled("Last run: %s", lastRunLine_.c_str());
        if ((pressed || startWanted_) && can) {
            startWanted_ = false;
            StartRun(*t);
        }
        startWanted_ = false;
    }

    // The status line's share of an error box: its first line, and the next
    // one too when the first only announces it ("... could not start:").
    static std::string StatusLineOf(const std::string& text) {
        const size_t end = text.find('\n');
        std::string line = text.substr(0, end);
        if (end != std::string::npos && !line.empty() && line.back() == ':')
            line += " " + text.substr(end + 1, text.find('\n', end + 1) - end - 1);
        return line;
    }

    void ShowError(const std::string& text) {
        errorText_ = text;
        errorPopup_ = true;
    }

    void ErrorPopup() {
        if (errorPopup_) {
            ImGui::OpenPopup("Error");
            errorPopup_ = false;
        }
        ImGui::SetNextWindowSize(ImVec2(ImGui::GetFontSize() * 30, 0));
        if (ImGui::BeginPopupModal("Error", nullptr, ImGuiWindowFlags_AlwaysAutoResize)) {
            errorShown_ = true;
            ImGui::TextWrapped("%s", errorText_.c_str());
            if (ImGui::Button("OK", ImVec2(ImGui::GetFontSize() * 6, 0)) || ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape)) ||
                ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Enter))) {
                ImGui::CloseCurrentPopup();
            }
            Track("error.ok");
            ImGui::EndPopup();
        } else {
            errorShown_ = false;
        }
    }

    void StartRun(const LauncherTest& t) {
        StartupOptions.test3d = t.test3d;
        StartupOptions.launcher_test3d = t.test3d;
        StartupOptions.api3d = t.api3d;
        StartupOptions.xtreme_burn_in_active = StartupOptions.xtreme_burn_in;
        // The fur scene takes the custom images the launcher names at its
        // first frame, once per hand-over: every run gets them anew.
        StartupOptions.fur_custom_diffuse_map_flag = true;
        StartupOptions.fur_custom_bkg_map_flag = true;
        errorText_.clear();
        TakeBoxes();
        scorePending_ = false;
        gEventLog.Write("Launcher: starting %s (%s).", t.name.c_str(), ApiName(t.api3d));
        running_ = true;
        WriteState(statePath_);
        window_->Hide();
        const unsigned logMark = gEventLog.LineCount();
        const bool started = hooks_.run();
        window_->Show();
        running_ = false;
        ++runs_;
        std::vector<std::string> boxes = TakeBoxes();
        std::string boxText;
        for (const std::string& b : boxes) boxText += (boxText.empty() ? "" : "\n") + b;
        if (!started)
            ShowError(boxText.empty() ? "The 3D window could not be created: no test was started." : boxText);
        else if (!gRunResults.started)
            ShowError(boxText.empty() ? RunFailureText(t.name, gEventLog.LinesAfter(logMark)) : boxText);
        else if (!boxText.empty())
            ShowError(boxText);
        lastRunLine_ = SummaryLine(gRunResults);
        if (scorePending_) {
            scorePending_ = false;
            sheet_.results = gRunResults;
            sheet_.context = hooks_.resultsContext();
            scoreOpen_ = true;
            scorePopup_ = true;
            saveText_.clear();
            copyText_.clear();
            submit_.Reset();
            status_.Reset();
        }
        LoadScores();
    }

    void SaveScore(bool json) {
        std::string base = scoreFileBase_;
        if (base.empty()) base = "Ardentium_Score";
        const std::string path = platform::ResolvePath(gShell.programFolder, base + (json ? ".json" : ".csv"));
        const std::string bytes = json ? ResultsJson(sheet_.results, sheet_.context) : ScoreCsv(sheet_);
        std::string reason;
        if (platform::WriteFileReplacing(path, bytes, &reason)) {
            saveText_ = "Saved to " + path;
            gEventLog.Write("Score saved to [%s].", path.c_str());
        } else {
            saveText_ = "Unable to write " + path + ": " + reason;
            gEventLog.Write("Unable to write the score [%s]: %s.", path.c_str(), reason.c_str());
        }
    }

    void SubmitButton(Submission& s, const char* label, const char* id, const std::string& body) {
        const std::string url = StartupOptions.score_submit_url;
        std::string shown = label;
        if (url.empty()) {
            shown += ": set the submission address in Settings";
            ImGui::BeginDisabled();
            ImGui::Button(shown.c_str());
            ImGui::EndDisabled();
        } else {
            ImGui::BeginDisabled(s.state() == Submission::State::Sending);
            if (ImGui::Button(label)) s.Start(url, body);
            ImGui::EndDisabled();
        }
        Track(id);
        rects_.emplace_back(std::string("label.") + id, shown);
        const std::string text = s.Text();
        if (!text.empty()) {
            ImGui::SameLine();
            const ImVec4 colour = s.state() == Submission::State::Failed ? ImVec4(1.0f, 0.45f, 0.4f, 1.0f)
                                                                           : ImVec4(0.6f, 0.9f, 0.6f, 1.0f);
            ImGui::TextColored(colour, "%s", text.c_str());
        }
    }

    void ScoreDialog() {
        if (scorePopup_) {
            ImGui::OpenPopup("Score");
            scorePopup_ = false;
        }
        const ImVec2 size = ImGui::GetIO().DisplaySize;
        ImGui::SetNextWindowSize(ImVec2(size.x * 0.85f, size.y * 0.85f), ImGuiCond_Appearing);
        ImGui::SetNextWindowPos(ImVec2(size.x * 0.5f, size.y * 0.5f), ImGuiCond_Appearing, ImVec2(0.5f, 0.5f));
        if (!ImGui::BeginPopupModal("Score", &scoreOpen_, ImGuiWindowFlags_NoSavedSettings)) {
            scoreOpen_ = false;
            return;
        }
        if (ImGui::BeginTable("figures", 2, ImGuiTableFlags_RowBg | ImGuiTableFlags_SizingStretchProp)) {
            for (const auto& line : ScoreSheetLines(sheet_)) {
                ImGui::TableNextColumn();
                ImGui::TextDisabled("%s", line.first.c_str());
                ImGui::TableNextColumn();
                ImGui::Text("%s", line.second.c_str());
            }
            ImGui::EndTable();
        }
        ImGui::Separator();
        ImGui::SetNextItemWidth(ImGui::GetFontSize() * 14);
        ImGui::InputText("File name", scoreFileBase_, sizeof scoreFileBase_);
        Track("score.file");
        if (ImGui::Button("Save JSON")) SaveScore(true);
        Track("score.save_json");
        ImGui::SameLine();
        if (ImGui::Button("Save CSV")) SaveScore(false);
        Track("score.save_csv");
        ImGui::SameLine();
        if (ImGui::Button("Copy to clipboard")) {
            ImGui::SetClipboardText(ScoreClipboardText(sheet_).c_str());
            const char* back = ImGui::GetClipboardText();
            copyText_ = back && ScoreClipboardText(sheet_) == back ? "Copied." : "The clipboard did not take the text.";
        }
        Track("score.copy");
        if (!saveText_.empty()) ImGui::TextWrapped("%s", saveText_.c_str());
        if (!copyText_.empty()) ImGui::TextWrapped("%s", copyText_.c_str());
        ImGui::Separator();
        SubmitButton(submit_, "Submit score", "score.submit",
                     ScoreSubmission(sheet_, StartupOptions.submit_score_user_email));
        SubmitButton(status_, "Post status", "score.post", StatusPost(sheet_, StartupOptions.submit_score_user_email));
        ImGui::Separator();
        if (ImGui::Button("Close", ImVec2(ImGui::GetFontSize() * 6, 0)) || ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape))) {
            scoreOpen_ = false;
            ImGui::CloseCurrentPopup();
        }
        Track("score.close");
        ImGui::EndPopup();
    }

    std::vector<std::pair<std::string, std::string>> StateEntries() const {
        const StartupOptionsRecord& o = StartupOptions;
        std::vector<std::pair<std::string, std::string>> e;
        e.emplace_back("tab", kTabNames[static_cast<int>(tab_)]);
        {
            const ImGuiIO& io = ImGui::GetIO();
            char m[96];
            std::snprintf(m, sizeof m, "%.0f,%.0f,%d", io.MousePos.x, io.MousePos.y, io.MouseDown[0] ? 1 : 0);
            e.emplace_back("pointer", m);
            int x = 0, y = 0;
            window_->ClientOrigin(&x, &y);
            e.emplace_back("client_origin", std::to_string(x) + "," + std::to_string(y));
        }
        {
            char scale[16];
            std::snprintf(scale, sizeof scale, "%.2f", textScale_);
            e.emplace_back("text_scale", scale);
        }
        e.emplace_back("running", running_ ? "1" : "0");
        e.emplace_back("runs", std::to_string(runs_));
        const LauncherTest* t = Selected();
        e.emplace_back("test3d", std::to_string(selectedTest_));
        e.emplace_back("test_name", t ? t->name : "");
        e.emplace_back("test_available", t && Available(*t) ? "1" : "0");
        e.emplace_back("api3d", std::to_string(o.api3d));
        e.emplace_back("width", std::to_string(o.width));
        e.emplace_back("height", std::to_string(o.height));
        e.emplace_back("fullscreen", std::to_string(o.fullscreen));
        e.emplace_back("aa_mode", o.aa_mode);
        e.emplace_back("run_mode", std::to_string(o.run_mode));
        e.emplace_back("time_based_benchmark", o.time_based_benchmark ? "1" : "0");
        e.emplace_back("max_time", std::to_string(o.max_time));
        e.emplace_back("max_frames", std::to_string(o.max_frames));
        e.emplace_back("xtreme_burn_in", o.xtreme_burn_in ? "1" : "0");
        e.emplace_back("furry_object", std::to_string(o.furry_object));
        e.emplace_back("display_score", std::to_string(o.display_score));
        e.emplace_back("score_submit_url", o.score_submit_url);
        e.emplace_back("error", errorText_);
        e.emplace_back("error_dialog", errorShown_ ? "1" : "0");
        e.emplace_back("scores_rows", std::to_string(scores_.rows.size()));
        if (!scores_.rows.empty()) e.emplace_back("scores_first_row", scores_.rows.front().empty() ? "" : scores_.rows.front()[0]);
        e.emplace_back("gpu_count", std::to_string(monitor::SensorGpuCount()));
        for (int i = 0; i < monitor::SensorGpuCount(); ++i) {
            monitor::GpuSensorSnapshot s;
            if (!monitor::ReadGpuSensors(i, &s)) continue;
            const std::string gpu = "gpu." + std::to_string(i + 1) + ".";
            e.emplace_back(gpu + "name", s.name);
            e.emplace_back(gpu + "temperature", Reading(s.temperature, "C"));
            e.emplace_back(gpu + "load", Reading(s.load, "%"));
            e.emplace_back(gpu + "core_clock", Reading(s.shown_core_clock(), "MHz"));
            const size_t samples = static_cast<size_t>(i) < history_.size() ? history_[static_cast<size_t>(i)].values.size() : 0;
            e.emplace_back(gpu + "history_samples", std::to_string(samples));
        }
        e.emplace_back("score_dialog", scoreOpen_ ? "1" : "0");
        if (scoreOpen_) {
            for (const auto& line : ScoreSheetLines(sheet_)) e.emplace_back("score." + line.first, line.second);
            e.emplace_back("score.save", saveText_);
            e.emplace_back("score.copy", copyText_);
            e.emplace_back("score.submit", submit_.Text());
            e.emplace_back("score.post", status_.Text());
        }
        for (const auto& r : rects_) e.push_back(r);
        return e;
    }

public:
    void SetStatePath(const std::string& path) { statePath_ = path; }
    void SetTextScale(float scale) { textScale_ = scale; }
    void NoteScorePending() { scorePending_ = true; }

private:
    LauncherHooks hooks_;
    platform::GuiWindow* window_;
    std::vector<LauncherTestGroup> groups_;
    int selectedTest_ = 2003;
    int selectedApi_ = 2;
    std::vector<std::pair<int, int>> modes_;
    Tab tab_ = Tab::Tests;
    std::vector<std::pair<std::string, std::string>> rects_;
    std::vector<History> history_;
    uint32_t lastSample_ = 0;
    bool sampledOnce_ = false;
    ScoresTable scores_;
    bool scoresFound_ = false;
    std::string adapter_;
    char emailBuffer_[256] = {0};
    char urlBuffer_[512] = {0};
    char scoreFileBase_[256] = {0};
    bool quit_ = false;
    bool startWanted_ = false;
    bool running_ = false;
    int runs_ = 0;
    std::string lastRunLine_;
    std::string errorText_;
    bool errorPopup_ = false;
    bool errorShown_ = false;
    bool scorePending_ = false;
    bool scoreOpen_ = false;
    bool scorePopup_ = false;
    ScoreSheet sheet_;
    std::string saveText_, copyText_;
    Submission submit_{"Score submission"};
    Submission status_{"Status post"};
    std::string statePath_;
    float textScale_ = 1.0f;
    std::string shotTarget_;
    std::string lastState_;
    bool stateFailureLogged_ = false;
};

}  // namespace

bool RunLauncher(const LauncherHooks& hooks, std::string* error) {
    IMGUI_CHECKVERSION();
    ImGui::CreateContext();
    ImGuiIO& io = ImGui::GetIO();
    // The launcher remembers nothing outside the settings file.
    io.IniFilename = nullptr;
    io.LogFilename = nullptr;
    io.ConfigFlags |= ImGuiConfigFlags_NavEnableKeyboard;

    std::unique_ptr<platform::GuiWindow> window = platform::CreateGuiWindow(kProductTitle, 960, 640, error);
    if (!window) {
        ImGui::DestroyContext();
        return false;
    }
    const float scale = window->DpiScale();
    if (scale > 1.0f) window->SetClientSize(static_cast<int>(960 * scale), static_cast<int>(640 * scale));
    const std::string font = FindHudFontFile(gShell.programFolder + "data/");
    if (font.empty() || !io.Fonts->AddFontFromFileTTF(font.c_str(), 16.0f * scale)) io.Fonts->AddFontDefault();
    ImGui::StyleColorsDark();
    ImGui::GetStyle().ScaleAllSizes(scale);
    gShell.launcherShown = true;
    gEventLog.Write("Launcher shown (text scale %.2f).", scale);

    SetBoxSink(CollectBox);
    Launcher launcher(hooks, window.get());
    launcher.SetAdapter(monitor::AdapterText());
    launcher.SetStatePath(gRunExtras.launcherStatePath);
    launcher.SetTextScale(scale);
    // The runner hands a finished benchmark's score here when its window closes.
    Launcher* self = &launcher;
    static Launcher* gActive = nullptr;
    gActive = self;
    gShowScore = [] {
        if (gActive) gActive->NoteScorePending();
    };

    bool open = true;
    while (open) {
        const bool windowOpen = window->BeginFrame();
        open = launcher.Frame(windowOpen);
        window->EndFrame();
        launcher.WriteState(gRunExtras.launcherStatePath);
        launcher.ServeScreenshotRequest(gRunExtras.launcherStatePath);
    }
    gEventLog.Write("Launcher closed.");
    gShowScore = [] {};
    gActive = nullptr;
    SetBoxSink(nullptr);
    window.reset();
    ImGui::DestroyContext();
    return true;
}
