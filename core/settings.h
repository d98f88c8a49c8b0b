// The settings record: one process-wide block filled from the defaults, then
// the settings file, then the command line, and read directly by every
// subsystem.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "core/settings_fields.h"

// One member per row of the field table, in its order (the order is part of
// the contract with the launcher).
#define ARD_DECLARE_FIELD(TYPE, NAME, ...) TYPE NAME;
#define ARD_DECLARE_RESERVED(TYPE, NAME, ...) TYPE NAME;
struct StartupOptionsRecord {
    using Text64 = settings_table::Text64;
    using Path1024 = settings_table::Path1024;
    using Int32Pair = settings_table::Int32Pair;
    using ReservedTexts = settings_table::ReservedTexts;
    using TuningBlock = settings_table::TuningBlock;
    using Flags6 = settings_table::Flags6;
    using Float2 = settings_table::Float2;
    ARD_SETTINGS_FIELDS(ARD_DECLARE_FIELD, ARD_DECLARE_RESERVED)
};
#undef ARD_DECLARE_FIELD
#undef ARD_DECLARE_RESERVED

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
// The text shown for /?, /help and --help: the switch lines made from both
// tables, then kUsageFooter.
std::string UsageText();
extern const char* const kUsageFooter;
// Every switch the program knows, settings and others, in the order tested.
std::vector<std::string> KnownSwitches();

// Switches of this build that are not settings: where and how a run is shown
// and recorded (the ARD_RUN_EXTRAS table). Parsed from the same raw command line.
#define ARD_DECLARE_EXTRA(TYPE, MEMBER, SWITCH, DEFAULT, HELP) TYPE MEMBER = DEFAULT;
struct RunExtras {
    ARD_RUN_EXTRAS(ARD_DECLARE_EXTRA)
};
#undef ARD_DECLARE_EXTRA
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
