// The settings record: one process-wide block filled from the defaults, then
// the settings file, then the command line, and read directly by every
// subsystem.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
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

struct StartupOptionsRecord {
    int32_t test3d;
    int32_t api3d;
    int32_t display_gui;
    int32_t display_menu_bar;
    int32_t display_score;
    int32_t display_version;
    int32_t width;
    int32_t height;
    bool custom_viewport_size;
    char aa_mode[kModeNameSize];
    int32_t reserved_launcher[2];
    int32_t fullscreen;
    int32_t run_mode;
    int32_t contest_mode;
    bool time_based_benchmark;
    uint32_t max_time;
    uint32_t max_frames;
    int32_t app_thread_priority;
    int32_t rendering_thread_priority;
    int32_t app_process_priority;
    uint32_t app_cpu_affinity;
    uint32_t rendering_cpu_affinity;
    int32_t reserved_int;
    bool xtreme_burn_in;
    bool log_temperature;
    bool log_score;
    bool catalyst_warning;
    int32_t furry_object;
    int16_t reserved_short;
    char reserved_text[2][128];
    bool enable_ty_osd_fix;
    bool render_post_fx;
    bool render_vxa_logo;
    bool render_a_logo;
    bool render_temp_graphs;
    bool render_gpu_monitor;
    bool render_general_indicators;
    bool display_visual_indicators;
    bool reserved_window_flag;
    bool enable_amark_music;
    GraphDescriptor gpu_load_graph;
    GraphDescriptor gpu_temp_graph;
    bool reserved_scene_flag_a;
    bool reserved_scene_flag_b;
    bool gl3_core_profile;
    bool xtreme_burn_in_active;
    bool enable_unlock_power_draw;
    int32_t tone_down_delay_ms;
    int32_t fullscreen_frequency_hz;
    int32_t dmsize;
    float tuning[15];
    char fur_custom_diffuse_map[kPathSize];
    bool fur_custom_diffuse_map_flag;
    char fur_custom_bkg_map[kPathSize];
    bool fur_custom_bkg_map_flag;
    bool display_dm;
    bool log_gl_errors;
    bool enable_gpu_physx;
    bool reserved_benchmark_flags[6];
    float reserved_benchmark_floats[2];
    int16_t reserved_benchmark_short;
    int32_t fractal_flame_particles;
    std::string submit_score_user_email;
};

// The block of run parameters the launcher and the runner share.
struct RunParametersBlock {
    int32_t width = 1280;
    int32_t height = 1024;
    int32_t fullscreen = 1;
    int32_t run_mode = 1;
    int32_t time_based = 1;
    uint32_t max_time = 60000;
    uint32_t max_frames = 10000;
};

extern StartupOptionsRecord StartupOptions;
extern RunParametersBlock RunParameters;

// Every field to its default; the rendering affinity depends on the
// processor count.
void InitStartupOptions();
void InitStartupOptions(StartupOptionsRecord& o, unsigned processorCount);

// Applies the switches of the raw command line (without the program path).
// A null pointer does nothing.
void ParseCommandLine(const char* commandLine);
void ParseCommandLine(StartupOptionsRecord& o, const char* commandLine);

// The raw command line of a program started with argv: the arguments joined by
// single spaces, "--name=value" and "--name" taken as "/name=value" and "/name".
std::string JoinArguments(int argc, const char* const* argv);

// One "name=value" line per named field, in declaration order.
std::string FormatSettings(const StartupOptionsRecord& o);
// The short text shown for /?, /help and --help.
std::string UsageText();

// Switches of this build that are not settings: where and how a run is shown
// and recorded. Parsed from the same raw command line.
struct RunExtras {
    bool headless = false;       // /headless: no window, offscreen drawing
    std::string screenshotPath;  // /screenshot=PATH: the last frame as PNG
    // /animation_time=SECONDS: the scene's animation held at that time, so
    // pictures of different APIs or cards show the same frame. Negative: off.
    float animationTime = -1.0f;
};
extern RunExtras gRunExtras;
RunExtras ParseRunExtras(const char* commandLine);

// The diagnostic and help switches, which are not settings.
constexpr const char* kPrintSettingsSwitch = "/print_settings";
bool WantsUsage(const char* commandLine);

// Anti-aliasing mode names and their sample counts.
struct AaModeInfo {
    const char* name;
    int samples;
};
extern const AaModeInfo kAaModes[];
extern const int kAaModeCount;
// Sample count of a mode name; 1 for "Off" or an unknown name.
int AaSampleCount(const char* modeName);

// Reads a decimal integer the way a "%d" scan does: leading white space, an
// optional sign, then digits. NoNumber leaves *out at 0; TooLarge (beyond
// 64 bits) leaves it untouched.
enum class NumberScan { Ok, NoNumber, TooLarge };
NumberScan ScanInteger(const char* text, long long* out);
// Whether a scanned number can be stored in a field of type T unchanged.
template <typename T>
constexpr bool FitsIn(long long value) {
    return value >= static_cast<long long>(std::numeric_limits<T>::min()) &&
           value <= static_cast<long long>(std::numeric_limits<T>::max());
}

// Copies text into a fixed, NUL-terminated buffer, cutting it to fit.
void CopyText(char* dst, size_t dstSize, const char* src);
