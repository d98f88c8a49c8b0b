// The one table of settings fields. The record `StartupOptionsRecord`, its
// defaults, the command-line switches, the settings file's reader and
// writer, /print_settings and the switch lines of --help are all generated
// from it, so a field is spelled out once.
//
// Adding a field is one line, at the place in the record it belongs:
//
//   F(TYPE, name, DEFAULT, LIMITS, FILE, SWITCH, HELP)
//
//   TYPE     int32_t, uint32_t, bool, std::string or one of the fixed types
//            below (Text64, Path1024, ...; a char array holds at most its
//            size minus one characters, longer text is cut).
//   DEFAULT  the value InitStartupOptions gives it; may use `cpus`, the
//            processor count. Untouched{} leaves the field as it is.
//   LIMITS   AnyValue (whatever the type holds) or Within(min, max): numbers
//            from the command line or the file outside it are refused, the
//            field keeps its value and the event log says so.
//   FILE     NoFile, or File(w, r): the attribute `name`, written as the w-th
//            and read as the r-th (the two orders differ; a new attribute
//            takes the next free numbers). FileWords(w, r, list) writes and
//            reads a number as one of the words of a WordList.
//            Integers are kept as given, bools are written 1/0 and read as
//            true only for exactly 1, texts are written with entities.
//   SWITCH   NoSwitch, or one of the forms below; the first argument is the
//            switch's place in the fixed order in which switches are tested
//            (a new switch takes the next free number):
//            Bare(n, "/name", v)        present: field = v
//            Choice(n, list)            each switch of the list, in turn, sets its value
//            Flag01(n, "/name")         "/name=%d" into the shared scratch; field = (scratch == 1)
//            Direct(n, "/name=")        "/name=%d" straight into the field
//            Scratch(n, "/name", reset) "/name=%d" into the scratch (set to 0 first when
//                                       reset); field = scratch. .Named(list) maps the
//                                       number to a text, .OneOf(list, other) maps
//                                       numbers outside the list to `other`.
//            The scratch is one integer shared by the whole parse: a bare
//            "/render_post_fx" takes the number an earlier switch left in it.
//   HELP     Help("ARG", "what it does") or NoHelp; ARG is what follows the
//            switch name in --help ("N", "0|1", "" for none). A switch that
//            changes nothing the user can see (stored only) gets NoHelp, and
//            a switch that works only with some other setting says so.
//
// R(TYPE, name, DEFAULT) declares a reserved field: in the record and its
// defaults only.
//
// Switches that are not settings (how a run is shown and recorded) live in
// ARD_RUN_EXTRAS below: X(TYPE, member, "/switch", DEFAULT, Help(...)), where
// a bool is set by the switch's presence, a std::string takes a path (quoted
// when it holds spaces), a float takes seconds (0 or more) and an int a
// whole number (0 or more).
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <string>

// Placement of a row of per-GPU bars on the HUD.
struct GraphDescriptor {
    bool shown;
    int32_t x;
    int32_t y;
    int32_t third;  // 120; kept as the launcher stores it
    float heightFraction;
    int32_t step;  // pixels between the bars of consecutive GPUs
};

constexpr int kModeNameSize = 64;
constexpr int kPathSize = 1024;

namespace settings_table {

using Text64 = char[kModeNameSize];
using Path1024 = char[kPathSize];
using Int32Pair = int32_t[2];
using ReservedTexts = char[2][128];
using TuningBlock = float[15];
using Flags6 = bool[6];
using Float2 = float[2];

// A default that leaves the field as it is.
struct Untouched {};
// A default of all zeros.
struct Zeroed {};

struct Limits {
    bool set = false;
    long long min = 0;
    long long max = 0;
};
constexpr Limits AnyValue{};
constexpr Limits Within(long long min, long long max) { return Limits{true, min, max}; }

// Whether a number may be stored in a field of type T with these limits.
template <typename T>
constexpr bool Accepts(const Limits& limits, long long value) {
    if constexpr (std::is_same_v<T, bool>) {
        (void)limits;
        return true;  // any number reads as true or false
    } else {
        if (value < static_cast<long long>(std::numeric_limits<T>::min()) ||
            value > static_cast<long long>(std::numeric_limits<T>::max()))
            return false;
        return !limits.set || (value >= limits.min && value <= limits.max);
    }
}

// A number and the word that stands for it.
struct Word {
    long long value;
    const char* text;
};

struct WordList {
    const Word* words = nullptr;
    int count = 0;
    const char* writeOtherwise = "";  // written for a number not in the list
    bool readOtherwiseKeeps = true;   // an unknown word leaves the field...
    long long readOtherwise = 0;      // ...or stores this
};

struct FileSpec {
    int writeOrder = 0;  // 0: not in the file
    int readOrder = 0;
    const WordList* words = nullptr;
};
constexpr FileSpec NoFile{};
constexpr FileSpec File(int writeOrder, int readOrder) { return FileSpec{writeOrder, readOrder, nullptr}; }
constexpr FileSpec FileWords(int writeOrder, int readOrder, const WordList& words) {
    return FileSpec{writeOrder, readOrder, &words};
}

enum class SwitchForm { None, Bare, Choice, Flag01, Direct, Scratch };

struct SwitchSpec {
    int order = 0;  // 0: no switch
    SwitchForm form = SwitchForm::None;
    const char* name = "";
    long long value = 0;        // Bare: the value set
    bool resetScratch = false;  // Scratch
    const Word* words = nullptr;  // Choice: the switches; Scratch: number -> text
    int wordCount = 0;
    const long long* oneOf = nullptr;  // Scratch: the accepted numbers...
    int oneOfCount = 0;
    long long otherwise = 0;  // ...and what any other number becomes

    template <int N>
    constexpr SwitchSpec Named(const Word (&list)[N]) const {
        SwitchSpec s = *this;
        s.words = list;
        s.wordCount = N;
        return s;
    }
    template <int N>
    constexpr SwitchSpec OneOf(const long long (&list)[N], long long other) const {
        SwitchSpec s = *this;
        s.oneOf = list;
        s.oneOfCount = N;
        s.otherwise = other;
        return s;
    }
};
constexpr SwitchSpec NoSwitch{};
constexpr SwitchSpec Make(int order, SwitchForm form, const char* name) {
    SwitchSpec s;
    s.order = order;
    s.form = form;
    s.name = name;
    return s;
}
constexpr SwitchSpec Bare(int order, const char* name, long long value) {
    SwitchSpec s = Make(order, SwitchForm::Bare, name);
    s.value = value;
    return s;
}
template <int N>
constexpr SwitchSpec Choice(int order, const Word (&switches)[N]) {
    return Make(order, SwitchForm::Choice, switches[0].text).Named(switches);
}
constexpr SwitchSpec Flag01(int order, const char* name) { return Make(order, SwitchForm::Flag01, name); }
constexpr SwitchSpec Direct(int order, const char* name) { return Make(order, SwitchForm::Direct, name); }
constexpr SwitchSpec Scratch(int order, const char* name, bool reset) {
    SwitchSpec s = Make(order, SwitchForm::Scratch, name);
    s.resetScratch = reset;
    return s;
}
constexpr bool kReset = true;
constexpr bool kCarry = false;

struct HelpText {
    const char* arg = nullptr;  // nullptr: not listed
    const char* text = "";
};
constexpr HelpText NoHelp{};
constexpr HelpText Help(const char* arg, const char* text) { return HelpText{arg, text}; }

// The data of the exceptions.
inline constexpr Word kRunModeWords[] = {{1, "BENCHMARK"}, {2, "STABILITY_TEST"}};
inline constexpr WordList kRunModeFile{kRunModeWords, 2, "STABILITY_TEST", false, 2};
// In the order the file writer tests them.
inline constexpr Word kFurryWords[] = {{1, "VXA"}, {5, "HD6970"}, {2, "TORUS"}, {4, "SPHERE"}, {3, "BOX"}};
inline constexpr WordList kFurryFile{kFurryWords, 5, "VXA", true, 0};
inline constexpr Word kFurrySwitches[] = {{1, "/furry_vxa"}, {5, "/furry_hd6970"}, {2, "/furry_torus"}};
inline constexpr Word kMsaaSwitchModes[] = {{0, "Off"}, {2, "2X MSAA"}, {4, "4X MSAA"}, {8, "8X MSAA"}};
inline constexpr long long kApiIds[] = {2, 3, 4, 9, 10, 11};

}  // namespace settings_table

// clang-format off
#define ARD_SETTINGS_FIELDS(F, R) \
    F(int32_t,  test3d,               0,              AnyValue,         NoFile,                      Scratch(31, "/test3d", kReset),          Help("ID", "test to start: 2003 fur (OpenGL 2), 2102 fur (OpenGL 3), 2006/2010/2015 fur (Direct3D 9/10/11, Windows only)")) \
    F(int32_t,  api3d,                Untouched{},    AnyValue,         File(1, 1),                  Scratch(32, "/api3d", kReset).OneOf(kApiIds, 2), Help("2|3|4|9|10|11", "OpenGL 2/3/4, Direct3D 9/10/11 (others: OpenGL 2)")) \
    F(int32_t,  display_gui,          1,              AnyValue,         File(2, 2),                  Flag01(2, "/display_gui"),               Help("0|1", "1 shows the launcher, 0 starts the test at once")) \
    F(int32_t,  display_menu_bar,     1,              AnyValue,         File(3, 3),                  Bare(3, "/nomenubar", 0),                Help("", "no menu bar on the 3D window")) \
    F(int32_t,  display_score,        1,              AnyValue,         File(4, 4),                  Bare(4, "/noscore", 0),                  Help("", "do not show the score")) \
    F(int32_t,  display_version,      0,              AnyValue,         File(5, 5),                  Bare(1, "/version", 1),                  Help("", "show the version and exit")) \
    F(int32_t,  width,                1280,           Within(1, 16384), File(6, 6),                  Direct(6, "/width="),                    Help("N", "render width in pixels (1..16384)")) \
    F(int32_t,  height,               720,            Within(1, 16384), File(7, 7),                  Direct(7, "/height="),                   Help("N", "render height in pixels (1..16384)")) \
    F(bool,     custom_viewport_size, false,          AnyValue,         File(8, 8),                  NoSwitch,                                NoHelp) \
    F(Text64,   aa_mode,              "Off",          AnyValue,         File(9, 9),                  Scratch(8, "/msaa=", kReset).Named(kMsaaSwitchModes), Help("0|2|4|8", "multisample anti-aliasing")) \
    R(Int32Pair, reserved_launcher,   Zeroed{}) \
    F(int32_t,  fullscreen,           0,              AnyValue,         File(10, 10),                Flag01(5, "/fullscreen"),                Help("0|1", "full-screen display mode")) \
    F(int32_t,  run_mode,             1,              AnyValue,         FileWords(11, 11, kRunModeFile), Direct(9, "/run_mode="),             Help("1|2", "1 benchmark, 2 stability test (burn-in)")) \
    F(int32_t,  contest_mode,         0,              AnyValue,         NoFile,                      Direct(10, "/contest_mode="),            Help("N", "contest run flag")) \
    F(bool,     time_based_benchmark, true,           AnyValue,         File(12, 12),                NoSwitch,                                NoHelp) \
    F(uint32_t, max_time,             60000,          AnyValue,         File(13, 13),                Direct(11, "/max_time="),                Help("MS", "run length in milliseconds")) \
    F(uint32_t, max_frames,           0,              AnyValue,         File(14, 14),                Direct(12, "/max_frames="),              Help("N", "run length in frames; used only when the settings file sets time_based_benchmark=\"0\"")) \
    F(int32_t,  app_thread_priority,  0,              AnyValue,         NoFile,                      Direct(13, "/app_thread_priority="),     NoHelp) \
    F(int32_t,  rendering_thread_priority, 0,         AnyValue,         NoFile,                      Direct(14, "/rendering_thread_priority="), NoHelp) \
    F(int32_t,  app_process_priority, 32,             AnyValue,         NoFile,                      Direct(15, "/app_process_priority="),    NoHelp) \
    F(uint32_t, app_cpu_affinity,     1,              AnyValue,         NoFile,                      Direct(16, "/app_cpu_affinity="),        NoHelp) \
    F(uint32_t, rendering_cpu_affinity, (cpus > 1 ? 2u : 1u), AnyValue, NoFile,                      Direct(17, "/rendering_cpu_affinity="),  NoHelp) \
    R(int32_t,  reserved_int,         0) \
    F(bool,     xtreme_burn_in,       false,          AnyValue,         File(15, 15),                NoSwitch,                                NoHelp) \
    F(bool,     log_temperature,      false,          AnyValue,         File(16, 16),                Bare(19, "/log_temperature", 1),         Help("", "write gpu-temperature.xml")) \
    F(bool,     log_score,            false,          AnyValue,         File(17, 17),                Bare(20, "/log_score", 1),               Help("", "append the result to Ardentium_Scores.csv")) \
    F(bool,     catalyst_warning,     true,           AnyValue,         NoFile,                      Bare(21, "/disable_catalyst_warning", 0), NoHelp) \
    F(int32_t,  furry_object,         1,              AnyValue,         FileWords(19, 28, kFurryFile), Choice(34, kFurrySwitches),            Help("", "fur-covered object: logo, HD6970 card or torus")) \
    R(int16_t,  reserved_short,       0) \
    R(ReservedTexts, reserved_text,   Zeroed{}) \
    F(bool,     enable_ty_osd_fix,    true,           AnyValue,         File(26, 25),                Flag01(28, "/enable_ty_osd_fix"),        Help("0|1", "work-around for an overclocking tool's on-screen display")) \
    F(bool,     render_post_fx,       false,          AnyValue,         File(20, 19),                Flag01(22, "/render_post_fx"),           Help("0|1", "post-processing pass")) \
    F(bool,     render_vxa_logo,      true,           AnyValue,         File(22, 21),                Flag01(23, "/render_vxa_logo"),          Help("0|1", "draw the maker logo")) \
    F(bool,     render_a_logo,        true,           AnyValue,         File(23, 22),                Flag01(24, "/render_a_logo"),            Help("0|1", "draw the product logo")) \
    F(bool,     render_temp_graphs,   false,          AnyValue,         File(21, 20),                Flag01(26, "/render_temp_graph"),        Help("0|1", "draw the temperature graph")) \
    F(bool,     render_gpu_monitor,   false,          AnyValue,         File(24, 23),                Flag01(25, "/render_gpu_monitor"),       Help("0|1", "draw the GPU monitor panel")) \
    F(bool,     render_general_indicators, true,      AnyValue,         File(25, 24),                Flag01(27, "/render_general_indicators"), Help("0|1", "draw the FPS, time and score texts")) \
    F(bool,     display_visual_indicators, true,      AnyValue,         NoFile,                      Bare(29, "/no_visual_indicators", 0),    Help("", "hide every on-screen indicator")) \
    R(bool,     reserved_window_flag, true) \
    F(bool,     enable_amark_music,   true,           AnyValue,         File(29, 26),                Bare(39, "/no_music", 0),                Help("", "no benchmark music")) \
    F(GraphDescriptor, gpu_load_graph, (GraphDescriptor{true, 10, 150, 120, 0.5f, 40}),  AnyValue, NoFile, NoSwitch,                         NoHelp) \
    F(GraphDescriptor, gpu_temp_graph, (GraphDescriptor{true, 150, 150, 120, 0.5f, 40}), AnyValue, NoFile, NoSwitch,                         NoHelp) \
    R(bool,     reserved_scene_flag_a, false) \
    R(bool,     reserved_scene_flag_b, true) \
    F(bool,     gl3_core_profile,     false,          AnyValue,         NoFile,                      Bare(33, "/gl3_core_profile", 1),        Help("", "core profile for OpenGL 3 and later")) \
    F(bool,     xtreme_burn_in_active, false,         AnyValue,         NoFile,                      Bare(18, "/xtreme_burn_in", 1),          Help("", "Xtreme burn-in for this run")) \
    F(bool,     enable_unlock_power_draw, true,       AnyValue,         File(18, 18),                NoSwitch,                                NoHelp) \
    F(int32_t,  tone_down_delay_ms,   0,              AnyValue,         File(27, 29),                NoSwitch,                                NoHelp) \
    F(int32_t,  fullscreen_frequency_hz, -1,          AnyValue,         File(28, 30),                NoSwitch,                                NoHelp) \
    F(int32_t,  dmsize,               4096,           Within(256, 8192), NoFile,                     Scratch(30, "/dmsize", kCarry),          Help("256..8192", "map size of the OpenGL 4 benchmark")) \
    R(TuningBlock, tuning,            (std::array<float, 15>{32, 32, 32, 30, 4, 1.0f, 0.7f, 0.6f, 0.8f, 0.8f, 1.0f, 0.9f, 0.9f, 0.9f, 90.0f})) \
    F(Path1024, fur_custom_diffuse_map, "",           AnyValue,         File(31, 31),                NoSwitch,                                NoHelp) \
    R(bool,     fur_custom_diffuse_map_flag, true) \
    F(Path1024, fur_custom_bkg_map,   "",             AnyValue,         File(32, 32),                NoSwitch,                                NoHelp) \
    R(bool,     fur_custom_bkg_map_flag, true) \
    F(bool,     display_dm,           false,          AnyValue,         NoFile,                      Bare(37, "/display_dm", 1),              Help("", "show the benchmark's map on screen")) \
    F(bool,     log_gl_errors,        false,          AnyValue,         NoFile,                      Bare(38, "/log_gl_errors", 1),           Help("", "check and log OpenGL errors")) \
    F(bool,     enable_gpu_physx,     false,          AnyValue,         File(30, 27),                NoSwitch,                                NoHelp) \
    R(Flags6,   reserved_benchmark_flags, (std::array<bool, 6>{true, true, true, false, false, false})) \
    R(Float2,   reserved_benchmark_floats, (std::array<float, 2>{0.5f, 0.5f})) \
    R(int16_t,  reserved_benchmark_short, 0) \
    F(int32_t,  amark_preset,         4,              AnyValue,         NoFile,                      Direct(42, "/amark_preset="),            Help("N", "OpenGL 4 benchmark preset: 1 entry, 2 normal, 3 extreme, 4 or 5 competition, other numbers demo mode")) \
    F(int32_t,  amark_stage_mask,     31,             Within(0, 31),    NoFile,                      Direct(43, "/amark_stages="),            Help("MASK", "for tests: OpenGL 4 benchmark stages to run, bit 0 = stage 1 ... bit 4 = stage 5; the others are marked not active")) \
    F(int32_t,  fractal_flame_particles, 2000000,     AnyValue,         NoFile,                      Scratch(40, "/fractal_flame_particles", kReset), Help("N", "particle count of the fractal flame test")) \
    F(std::string, submit_score_user_email, "",       AnyValue,         File(33, 33),                NoSwitch,                                NoHelp) \
    F(bool,     enable_gpuz_bridge,   false,          AnyValue,         File(34, 34),                Flag01(41, "/enable_gpuz_bridge"),       Help("0|1", "take GPU 1's core clock, memory clock and voltage (and a temperature no interface reads) from GPU-Z while it runs")) \
    F(std::string, score_submit_url,  "",             AnyValue,         File(35, 35),                NoSwitch,                                NoHelp) \
    F(int32_t,  launcher_test3d,      2003,           AnyValue,         File(36, 36),                NoSwitch,                                NoHelp)

// Switches that are not settings: where and how a run is shown and recorded.
#define ARD_RUN_EXTRAS(X) \
    X(bool,        headless,        "/headless",        false, Help("", "draw offscreen, without a window (automatic on Linux without a display); Ctrl+C or SIGTERM ends the run")) \
    X(std::string, screenshotPath,  "/screenshot=",     "",    Help("PATH", "save the run's last frame as a PNG image")) \
    X(float,       animationTime,   "/animation_time=", -1.0f, Help("SECONDS", "hold the scene's animation at that time (same picture on every API and card)")) \
    X(float,       amarkStageSeconds, "/amark_stage_seconds=", -1.0f, Help("SECONDS", "meant for tests only: every OpenGL 4 benchmark stage lasts SECONDS instead of its planned 20 or 50 s (scores are then not comparable)")) \
    X(std::string, resultsJsonPath, "/results_json=",   "",    Help("PATH", "write the run's result (frames, FPS, frame times, sensors, errors) as JSON to PATH")) \
    X(bool,        listGpus,        "/list_gpus",       false, Help("", "list the GPUs, how each is read and its current sensor readings on standard output, then exit")) \
    X(std::string, launcherStatePath, "/launcher_state=", "",  Help("PATH", "launcher: keep PATH up to date with its tab, fields and widget positions (for tests and bug reports)")) \
    X(std::string, logFramesPath,   "/log_frames=",     "",    Help("PATH", "write one CSV row per second to PATH: frames, FPS, frame time p50/p99 and every GPU's temperature, load, clocks and power")) \
    X(int,         gpuIndex,        "/gpu=",            0,     Help("N", "run the test on GPU N as /list_gpus numbers them (OpenGL headless through EGL, Direct3D 9/10/11); 0 or absent: the system's default")) \
    X(int,         verifyEveryFrames, "/verify_every=", 0,     Help("FRAMES", "meant for tests only: check the picture against the run's reference every FRAMES frames instead of every 5 s and 200 frames")) \
    X(int,         verifyFaultCheck, "/verify_fault=",  0,     Help("N", "meant for tests only: corrupt the read-back of the N-th picture check, so the run must report a verification error")) \
    X(float,       glappLoad,       "/glapp_load=",     -1.0f, Help("N", "GL test applications: the load to start with (tessellation level; vertices per side of the wavy plane; particles of the fractal flame); default: the test's own")) \
    X(bool,        glappPanel,      "/glapp_panel",     false, Help("", "GL test applications: show the parameter panel (F2) from the first frame"))
// clang-format on
