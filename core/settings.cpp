#include "core/settings.h"

#include <cstdio>
#include <cstring>
#include <sstream>

#include "platform/platform.h"

StartupOptionsRecord StartupOptions;
RunParametersBlock RunParameters;

const AaModeInfo kAaModes[] = {
    {"Off", 1},
    {"2X MSAA", 2},
    {"4X MSAA", 4},
    {"8X MSAA", 8},
    // Coverage modes fall back to the colour sample count they are built on.
    {"8X CSAA", 4},
    {"16X CSAA", 4},
    {"32X CSAA", 8},
    {"8XQ (Quality) CSAA", 8},
    {"16XQ (Quality) CSAA", 8},
    {"32XQ (Quality) CSAA", 8},
};
const int kAaModeCount = static_cast<int>(sizeof kAaModes / sizeof kAaModes[0]);

int AaSampleCount(const char* modeName) {
    if (!modeName) return 1;
    for (const AaModeInfo& m : kAaModes)
        if (std::strcmp(m.name, modeName) == 0) return m.samples;
    return 1;
}

void CopyText(char* dst, size_t dstSize, const char* src) {
    if (dstSize == 0) return;
    std::memset(dst, 0, dstSize);
    if (src) std::strncpy(dst, src, dstSize - 1);
}

NumberScan ScanInteger(const char* text, long long* out) {
    if (!text) return NumberScan::NoNumber;
    const char* p = text;
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\v' || *p == '\f') ++p;
    bool negative = *p == '-';
    if (*p == '+' || *p == '-') ++p;
    if (*p < '0' || *p > '9') {
        *out = 0;
        return NumberScan::NoNumber;
    }
    unsigned long long magnitude = 0;
    const unsigned long long limit = negative ? 9223372036854775808ull : 9223372036854775807ull;
    for (; *p >= '0' && *p <= '9'; ++p) {
        unsigned digit = static_cast<unsigned>(*p - '0');
        if (magnitude > (limit - digit) / 10) return NumberScan::TooLarge;
        magnitude = magnitude * 10 + digit;
    }
    *out = negative ? static_cast<long long>(0 - magnitude) : static_cast<long long>(magnitude);
    return NumberScan::Ok;
}

void InitStartupOptions() { InitStartupOptions(StartupOptions, platform::GetSystemInfo().numberOfProcessors); }

void InitStartupOptions(StartupOptionsRecord& o, unsigned processorCount) {
    o.test3d = 0;
    // api3d keeps whatever it holds: it is zero from static initialisation.
    o.display_gui = 1;
    o.display_menu_bar = 1;
    o.display_score = 1;
    o.display_version = 0;
    o.width = 1280;
    o.height = 720;
    o.custom_viewport_size = false;
    CopyText(o.aa_mode, sizeof o.aa_mode, "Off");
    o.reserved_launcher[0] = 0;
    o.reserved_launcher[1] = 0;
    o.fullscreen = 0;
    o.run_mode = 1;
    o.contest_mode = 0;
    o.time_based_benchmark = true;
    o.max_time = 60000;
    o.max_frames = 0;
    o.app_thread_priority = 0;
    o.rendering_thread_priority = 0;
    o.app_process_priority = 32;
    o.app_cpu_affinity = 1;
    o.rendering_cpu_affinity = processorCount > 1 ? 2 : 1;
    o.reserved_int = 0;
    o.xtreme_burn_in = false;
    o.log_temperature = false;
    o.log_score = false;
    o.catalyst_warning = true;
    o.furry_object = 1;
    o.reserved_short = 0;
    std::memset(o.reserved_text, 0, sizeof o.reserved_text);
    o.enable_ty_osd_fix = true;
    o.render_post_fx = false;
    o.render_vxa_logo = true;
    o.render_a_logo = true;
    o.render_temp_graphs = false;
    o.render_gpu_monitor = false;
    o.render_general_indicators = true;
    o.display_visual_indicators = true;
    o.reserved_window_flag = true;
    o.enable_amark_music = true;
    o.gpu_load_graph = GraphDescriptor{true, 10, 150, 120, 0.5f, 40};
    o.gpu_temp_graph = GraphDescriptor{true, 150, 150, 120, 0.5f, 40};
    o.reserved_scene_flag_a = false;
    o.reserved_scene_flag_b = true;
    o.gl3_core_profile = false;
    o.xtreme_burn_in_active = false;
    o.enable_unlock_power_draw = true;
    o.tone_down_delay_ms = 0;
    o.fullscreen_frequency_hz = -1;
    o.dmsize = 4096;
    static const float kTuning[15] = {32, 32, 32, 30, 4, 1.0f, 0.7f, 0.6f, 0.8f, 0.8f, 1.0f, 0.9f, 0.9f, 0.9f, 90.0f};
    std::memcpy(o.tuning, kTuning, sizeof kTuning);
    CopyText(o.fur_custom_diffuse_map, sizeof o.fur_custom_diffuse_map, "");
    o.fur_custom_diffuse_map_flag = true;
    CopyText(o.fur_custom_bkg_map, sizeof o.fur_custom_bkg_map, "");
    o.fur_custom_bkg_map_flag = true;
    o.display_dm = false;
    o.log_gl_errors = false;
    o.enable_gpu_physx = false;
    const bool kBenchmarkFlags[6] = {true, true, true, false, false, false};
    std::memcpy(o.reserved_benchmark_flags, kBenchmarkFlags, sizeof kBenchmarkFlags);
    o.reserved_benchmark_floats[0] = 0.5f;
    o.reserved_benchmark_floats[1] = 0.5f;
    o.reserved_benchmark_short = 0;
    o.fractal_flame_particles = 2000000;
    o.submit_score_user_email.clear();
}

namespace {

// The parse state shared by all switches: one scratch integer that carries a
// number from one switch to the next unless a switch resets it. A bare
// "/render_post_fx" therefore takes whatever an earlier switch left there;
// scripts rely on that, so it stays.
class SwitchParser {
public:
    explicit SwitchParser(const char* cmd) : cmd_(cmd) {}

    const char* Find(const char* name) const { return std::strstr(cmd_, name); }

    // Bare switch: true when present anywhere.
    bool Has(const char* name) const { return Find(name) != nullptr; }

    // "direct" switch: scans into the field; unreadable leaves it unchanged.
    template <typename T>
    void Direct(const char* name, T& field) const {
        const char* at = Find(name);
        if (!at) return;
        int value = 0;
        if (std::sscanf(at, Format(name).c_str(), &value) == 1) field = static_cast<T>(value);
    }

    // "scratch" switch: scans into the shared scratch; returns false when the
    // switch is absent.
    bool Scratch(const char* name, bool resetFirst) {
        const char* at = Find(name);
        if (!at) return false;
        if (resetFirst) scratch_ = 0;
        std::sscanf(at, Format(name).c_str(), &scratch_);
        return true;
    }

    // 0/1 scratch switch: the field is set only when the scratch holds 1.
    template <typename T>
    void Flag(const char* name, T& field) {
        if (Scratch(name, false)) field = static_cast<T>(scratch_ == 1);
    }

    int scratch() const { return scratch_; }

private:
    // The scan format is the switch name, an equals sign and one integer.
    static std::string Format(const char* name) {
        std::string f(name);
        if (f.empty() || f.back() != '=') f += '=';
        return f + "%d";
    }

    const char* cmd_;
    int scratch_ = 0;  // never 1 before the first scan
};

}  // namespace

void ParseCommandLine(const char* commandLine) { ParseCommandLine(StartupOptions, commandLine); }

void ParseCommandLine(StartupOptionsRecord& o, const char* commandLine) {
    if (!commandLine) return;
    SwitchParser p(commandLine);

    if (p.Has("/version")) o.display_version = 1;
    p.Flag("/display_gui", o.display_gui);
    if (p.Has("/nomenubar")) o.display_menu_bar = 0;
    if (p.Has("/noscore")) o.display_score = 0;
    p.Flag("/fullscreen", o.fullscreen);
    p.Direct("/width=", o.width);
    p.Direct("/height=", o.height);
    if (p.Scratch("/msaa=", true)) {
        switch (p.scratch()) {
            case 0: CopyText(o.aa_mode, sizeof o.aa_mode, "Off"); break;
            case 2: CopyText(o.aa_mode, sizeof o.aa_mode, "2X MSAA"); break;
            case 4: CopyText(o.aa_mode, sizeof o.aa_mode, "4X MSAA"); break;
            case 8: CopyText(o.aa_mode, sizeof o.aa_mode, "8X MSAA"); break;
            default: break;
        }
    }
    p.Direct("/run_mode=", o.run_mode);
    p.Direct("/contest_mode=", o.contest_mode);
    p.Direct("/max_time=", o.max_time);
    p.Direct("/max_frames=", o.max_frames);
    p.Direct("/app_thread_priority=", o.app_thread_priority);
    p.Direct("/rendering_thread_priority=", o.rendering_thread_priority);
    p.Direct("/app_process_priority=", o.app_process_priority);
    p.Direct("/app_cpu_affinity=", o.app_cpu_affinity);
    p.Direct("/rendering_cpu_affinity=", o.rendering_cpu_affinity);
    if (p.Has("/xtreme_burn_in")) o.xtreme_burn_in_active = true;
    if (p.Has("/log_temperature")) o.log_temperature = true;
    if (p.Has("/log_score")) o.log_score = true;
    if (p.Has("/disable_catalyst_warning")) o.catalyst_warning = false;
    p.Flag("/render_post_fx", o.render_post_fx);
    p.Flag("/render_vxa_logo", o.render_vxa_logo);
    p.Flag("/render_a_logo", o.render_a_logo);
    p.Flag("/render_gpu_monitor", o.render_gpu_monitor);
    p.Flag("/render_temp_graph", o.render_temp_graphs);
    p.Flag("/render_general_indicators", o.render_general_indicators);
    p.Flag("/enable_ty_osd_fix", o.enable_ty_osd_fix);
    if (p.Has("/no_visual_indicators")) o.display_visual_indicators = false;
    if (p.Scratch("/dmsize", false) && p.scratch() >= 256 && p.scratch() <= 8192) o.dmsize = p.scratch();
    if (p.Scratch("/test3d", true)) o.test3d = p.scratch();
    if (p.Scratch("/api3d", true)) {
        int api = p.scratch();
        o.api3d = (api == 2 || api == 3 || api == 4 || api == 9 || api == 10 || api == 11) ? api : 2;
    }
    if (p.Has("/gl3_core_profile")) o.gl3_core_profile = true;
    if (p.Has("/furry_vxa")) o.furry_object = 1;
    if (p.Has("/furry_hd6970")) o.furry_object = 5;
    if (p.Has("/furry_torus")) o.furry_object = 2;
    if (p.Has("/display_dm")) o.display_dm = true;
    if (p.Has("/log_gl_errors")) o.log_gl_errors = true;
    if (p.Has("/no_music")) o.enable_amark_music = false;
    if (p.Scratch("/fractal_flame_particles", true)) o.fractal_flame_particles = p.scratch();
}

std::string JoinArguments(int argc, const char* const* argv) {
    std::string out;
    for (int i = 1; i < argc; ++i) {
        if (!argv[i]) continue;
        std::string arg = argv[i];
        if (arg.size() > 2 && arg[0] == '-' && arg[1] == '-') arg = "/" + arg.substr(2);
        if (!out.empty()) out += ' ';
        out += arg;
    }
    return out;
}

namespace {

class FieldPrinter {
public:
    void Int(const char* name, long long v) { out_ << name << '=' << v << '\n'; }
    void Bool(const char* name, bool v) { out_ << name << '=' << (v ? 1 : 0) << '\n'; }
    void Text(const char* name, const std::string& v) { out_ << name << '=' << v << '\n'; }
    void Graph(const char* name, const GraphDescriptor& g) {
        char buf[160];
        std::snprintf(buf, sizeof buf, "%d,%d,%d,%d,%g,%d", g.shown ? 1 : 0, g.x, g.y, g.third,
                      static_cast<double>(g.heightFraction), g.step);
        out_ << name << '=' << buf << '\n';
    }
    std::string str() const { return out_.str(); }

private:
    std::ostringstream out_;
};

}  // namespace

std::string FormatSettings(const StartupOptionsRecord& o) {
    FieldPrinter p;
    p.Int("test3d", o.test3d);
    p.Int("api3d", o.api3d);
    p.Int("display_gui", o.display_gui);
    p.Int("display_menu_bar", o.display_menu_bar);
    p.Int("display_score", o.display_score);
    p.Int("display_version", o.display_version);
    p.Int("width", o.width);
    p.Int("height", o.height);
    p.Bool("custom_viewport_size", o.custom_viewport_size);
    p.Text("aa_mode", o.aa_mode);
    p.Int("fullscreen", o.fullscreen);
    p.Int("run_mode", o.run_mode);
    p.Int("contest_mode", o.contest_mode);
    p.Bool("time_based_benchmark", o.time_based_benchmark);
    p.Int("max_time", o.max_time);
    p.Int("max_frames", o.max_frames);
    p.Int("app_thread_priority", o.app_thread_priority);
    p.Int("rendering_thread_priority", o.rendering_thread_priority);
    p.Int("app_process_priority", o.app_process_priority);
    p.Int("app_cpu_affinity", o.app_cpu_affinity);
    p.Int("rendering_cpu_affinity", o.rendering_cpu_affinity);
    p.Bool("xtreme_burn_in", o.xtreme_burn_in);
    p.Bool("log_temperature", o.log_temperature);
    p.Bool("log_score", o.log_score);
    p.Bool("catalyst_warning", o.catalyst_warning);
    p.Int("furry_object", o.furry_object);
    p.Bool("enable_ty_osd_fix", o.enable_ty_osd_fix);
    p.Bool("render_post_fx", o.render_post_fx);
    p.Bool("render_vxa_logo", o.render_vxa_logo);
    p.Bool("render_a_logo", o.render_a_logo);
    p.Bool("render_temp_graphs", o.render_temp_graphs);
    p.Bool("render_gpu_monitor", o.render_gpu_monitor);
    p.Bool("render_general_indicators", o.render_general_indicators);
    p.Bool("display_visual_indicators", o.display_visual_indicators);
    p.Bool("enable_amark_music", o.enable_amark_music);
    p.Graph("gpu_load_graph", o.gpu_load_graph);
    p.Graph("gpu_temp_graph", o.gpu_temp_graph);
    p.Bool("gl3_core_profile", o.gl3_core_profile);
    p.Bool("xtreme_burn_in_active", o.xtreme_burn_in_active);
    p.Bool("enable_unlock_power_draw", o.enable_unlock_power_draw);
    p.Int("tone_down_delay_ms", o.tone_down_delay_ms);
    p.Int("fullscreen_frequency_hz", o.fullscreen_frequency_hz);
    p.Int("dmsize", o.dmsize);
    p.Text("fur_custom_diffuse_map", o.fur_custom_diffuse_map);
    p.Text("fur_custom_bkg_map", o.fur_custom_bkg_map);
    p.Bool("display_dm", o.display_dm);
    p.Bool("log_gl_errors", o.log_gl_errors);
    p.Bool("enable_gpu_physx", o.enable_gpu_physx);
    p.Int("fractal_flame_particles", o.fractal_flame_particles);
    p.Text("submit_score_user_email", o.submit_score_user_email);
    return p.str();
}

RunExtras gRunExtras;

RunExtras ParseRunExtras(const char* commandLine) {
    RunExtras e;
    if (!commandLine) return e;
    e.headless = std::strstr(commandLine, "/headless") != nullptr;
    if (const char* at = std::strstr(commandLine, "/animation_time=")) {
        float t = 0.0f;
        if (std::sscanf(at, "/animation_time=%f", &t) == 1 && t >= 0.0f && t < 1e6f) e.animationTime = t;
    }
    if (const char* at = std::strstr(commandLine, "/screenshot=")) {
        at += std::strlen("/screenshot=");
        // A quoted path may hold spaces; otherwise the path ends at the next one.
        if (*at == '"') {
            const char* end = std::strchr(at + 1, '"');
            e.screenshotPath = end ? std::string(at + 1, end) : std::string(at + 1);
        } else {
            const char* end = std::strchr(at, ' ');
            e.screenshotPath = end ? std::string(at, end) : std::string(at);
        }
    }
    return e;
}

bool WantsUsage(const char* commandLine) {
    if (!commandLine) return false;
    return std::strstr(commandLine, "/?") || std::strstr(commandLine, "/help") || std::strstr(commandLine, "--help");
}

std::string UsageText() {
    return "Usage: ardentium [switches]\n"
           "Switches are written /name or /name=value (on Linux also --name or --name=value).\n"
           "\n"
           "  /version                      show the version and exit\n"
           "  /display_gui=0|1              1 shows the launcher, 0 starts the test at once\n"
           "  /nomenubar                    no menu bar on the 3D window\n"
           "  /noscore                      do not show the score\n"
           "  /fullscreen=0|1               full-screen display mode\n"
           "  /width=N /height=N            render size in pixels\n"
           "  /msaa=0|2|4|8                 multisample anti-aliasing\n"
           "  /run_mode=1|2                 1 benchmark, 2 stability test (burn-in)\n"
           "  /contest_mode=N               contest run flag\n"
           "  /max_time=MS                  run length in milliseconds\n"
           "  /max_frames=N                 run length in frames (0: not used)\n"
           "  /app_thread_priority=N  /rendering_thread_priority=N  /app_process_priority=N\n"
           "  /app_cpu_affinity=MASK  /rendering_cpu_affinity=MASK   (stored, not applied)\n"
           "  /xtreme_burn_in               Xtreme burn-in for this run\n"
           "  /log_temperature              write gpu-temperature.xml\n"
           "  /log_score                    append the result to Ardentium_Scores.csv\n"
           "  /disable_catalyst_warning\n"
           "  /render_post_fx=0|1  /render_vxa_logo=0|1  /render_a_logo=0|1\n"
           "  /render_gpu_monitor=0|1  /render_temp_graph=0|1  /render_general_indicators=0|1\n"
           "  /enable_ty_osd_fix=0|1\n"
           "  /no_visual_indicators         hide every on-screen indicator\n"
           "  /dmsize=256..8192             map size of the OpenGL 4 benchmark\n"
           "  /test3d=ID                    test to start (2003 fur benchmark, ...)\n"
           "  /api3d=2|3|4|9|10|11          OpenGL 2/3/4, Direct3D 9/10/11\n"
           "  /gl3_core_profile             core profile for OpenGL 3 and later\n"
           "  /furry_vxa  /furry_hd6970  /furry_torus\n"
           "  /display_dm  /log_gl_errors  /no_music\n"
           "  /fractal_flame_particles=N\n"
           "  /headless                     draw offscreen, without a window (automatic on Linux\n"
           "                                without a display); Ctrl+C or SIGTERM ends the run\n"
           "  /screenshot=PATH              save the run's last frame as a PNG image\n"
           "  /animation_time=SECONDS       hold the scene's animation at that time (same picture\n"
           "                                on every API and card)\n"
           "  /print_settings               print the resulting settings and exit\n"
           "  /? /help                      this text\n"
           "\n"
           "A bare 0/1 switch (for example /render_post_fx) takes the number of the switch\n"
           "before it; write the value to be sure.\n";
}
